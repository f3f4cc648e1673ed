// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "tests/support/ScriptedHttpServer.h"
#include "tests/support/Testing.h"

/** A device on the network that answers searches and serves a description. Make it inside the network it belongs to. */
class FakeDevice
{
public:
    struct Request
    {
        std::chrono::steady_clock::time_point time;
        std::string bytes;
        std::string sender;
        int senderPort;
    };

    struct Options
    {
        std::string address;
        std::string usn = "uuid:fake::upnp:rootdevice";

        /** What the description says; by default a device of ours on port 6000. */
        std::string description = ours ("Fake", 6000);

        /** Searches that are left without an answer at the start. */
        int ignoredSearches = 0;

        /** Replaces the answers by others. */
        std::function<std::vector<std::string> (const FakeDevice&, const Request&)> answers = {};

        /** Replaces the description. */
        ScriptedHttpServer::Script script = {};
    };

    explicit FakeDevice (Options options);
    ~FakeDevice();

    std::string location() const { return http.url ("/description.xml"); }
    std::string url (const std::string& path) const { return http.url (path); }

    /** A well-formed answer to a search. */
    static std::string answer (const std::string& usn, const std::string& location);

    /** The description of a device of ours. */
    static std::string ours (const std::string& friendlyName, int port);

    /** Sends a search from an address of the present network, and collects what comes back until there is silence. */
    static std::vector<std::string> search (
        const std::string& from, const std::string& text, int copies, std::size_t expected,
        std::chrono::seconds patience = std::chrono::seconds (2), const std::function<void()>& onAnswer = [] {});

    /** The searches so far. */
    std::vector<Request> searches() const;

    /** Waits until so many searches have come. @returns false after 20 seconds without them */
    bool waitForSearches (std::size_t count) const;

    /** The requests of its HTTP server. */
    std::vector<std::string> fetches() const { return http.requests(); }

    /** Sends a datagram from the device's search socket. */
    void sendTo (const std::string& address, int port, const std::string& bytes) const;

private:
    void run (std::stop_token stop);

    const Options options;
    ScriptedHttpServer http;
    int socket = -1;
    mutable std::mutex mutex;
    std::vector<Request> received;
    std::jthread thread;
};
