// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/receiver/network/Announcement.h"
#include "tools/receiver/network/Sockets.h"

namespace veltra::receiver {

/** Answers searches of the network (SSDP), each after a random part of the time that the search allows, and serves by
    HTTP the description that the answers refer to. Several announcers can run on one machine.
*/
class Announcer
{
public:
    using Log = std::function<void (const std::string&)>;

    /** @param address  IPv4 address of the interface to answer on, "0.0.0.0" for all
        @param log      called on the threads of this object
        @throws         std::system_error when it cannot listen */
    Announcer (Announcement announcement, const std::string& address, Log log);
    ~Announcer();

    Announcer (const Announcer&) = delete;
    Announcer& operator= (const Announcer&) = delete;

    /** Port of the HTTP server. */
    std::uint16_t httpPort() const { return listener.port(); }

private:
    struct PendingAnswer
    {
        std::chrono::steady_clock::time_point due;
        std::uint32_t address; ///< in network order, as the port
        std::uint16_t port;
        std::string text;
    };

    /** Answers that wait for their time. Searches beyond these are not answered: a search with a forged sender must not
        multiply the traffic to its victim. */
    static constexpr std::size_t kMaxPending = 64;

    void answerSearches();
    void takeSearch();
    void sendDueAnswers();
    void serveDescription();
    void serve (const Descriptor& client) const;
    std::string locationFor (std::uint32_t peer) const;

    const Announcement announcement;
    const std::string address;
    const Log log;
    StopSignal stop;
    Listener listener;
    Descriptor searchSocket;
    std::vector<PendingAnswer> pending;
    std::thread searches, descriptions;
};

}
