// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "tests/support/Testing.h"
#include "tools/receiver/network/Sockets.h"

/** An HTTP server on 127.0.0.1 that does to its clients whatever a test wants, one thread a connection. */
class ScriptedHttpServer
{
public:
    /** The server's end of one connection, after the request has been read. */
    class Exchange
    {
    public:
        const std::string path;

        /** @returns false when the client has gone or the server is being stopped */
        bool send (std::string_view bytes) { return connection.send (bytes); }

        /** Holds the connection without a word. @returns false when the server is being stopped */
        bool wait (int milliseconds) const { return stop.pause (std::chrono::milliseconds (milliseconds)); }

    private:
        friend class ScriptedHttpServer;
        Exchange (std::string requestedPath, veltra::receiver::HostSocket& client,
                  const veltra::receiver::StopSignal& stopSignal)
            : path (std::move (requestedPath)),
              connection (client),
              stop (stopSignal)
        {
        }

        veltra::receiver::HostSocket& connection;
        const veltra::receiver::StopSignal& stop;
    };

    using Script = std::function<void (Exchange&)>;

    explicit ScriptedHttpServer (Script script, const std::string& address = "127.0.0.1");
    ~ScriptedHttpServer();

    std::string url (const std::string& path) const;
    int port() const { return listener.port(); }

    /** The requests so far, headers included. */
    std::vector<std::string> requests() const;

    /** A whole reply. */
    static std::string reply (int status, std::string_view body, std::string_view headers = {});

private:
    struct Connection
    {
        std::shared_ptr<std::atomic<bool>> done;
        std::jthread thread;
    };

    void accept();
    void serve (veltra::receiver::Descriptor socket);

    const Script script;
    const std::string address;
    veltra::receiver::StopSignal stop;
    veltra::receiver::Listener listener;
    mutable std::mutex mutex;
    std::vector<std::string> received;
    std::vector<Connection> connections; // acceptor only
    std::jthread acceptor;
};
