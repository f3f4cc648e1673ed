// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace upnp {

/** The descriptions that a scan still has to fetch, in an order in which nobody keeps the others waiting: what one
    address has answered is fetched one after the other while the answers of another wait, and a slow server gets a second
    turn behind those that had none. Any thread. */
class FetchQueue
{
public:
    struct Fetch
    {
        std::string sender; ///< address that the answer came from; a location can name any host
        std::string location;
        bool mayUseLoopback = false; ///< as HttpLimits::mayUseLoopback
        bool isRepeated = false;     ///< it was interrupted, which happens once, and waits behind all others
    };

    /** Ends a fetch with its scope. */
    struct End
    {
        FetchQueue& queue;
        const Fetch& fetch;

        ~End() { queue.end (fetch); }
    };

    /** Descriptions that wait or are being fetched. */
    std::size_t size() const;

    void add (Fetch fetch);

    /** Takes the first of those whose sender keeps no thread busy, or the first of all when there are none. */
    std::optional<Fetch> begin();

    /** Whether this fetch takes the turn of one that has not been tried, of a sender that keeps no thread busy. */
    bool isInTheWay (const Fetch& fetch) const;

    /** The fetch is over. */
    void end (const Fetch& fetch);

private:
    bool isBusy (const std::string& sender) const;

    mutable std::mutex mutex;
    std::deque<Fetch> waiting;
    std::vector<std::string> busy; ///< senders, one entry for each fetch
};

}
