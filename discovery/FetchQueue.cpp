// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/FetchQueue.h"

#include <algorithm>
#include <utility>

namespace upnp {

std::size_t FetchQueue::size() const
{
    const std::lock_guard guard (mutex);
    return waiting.size() + busy.size();
}

void FetchQueue::add (Fetch fetch)
{
    const std::lock_guard guard (mutex);
    waiting.push_back (std::move (fetch));
}

std::optional<FetchQueue::Fetch> FetchQueue::begin()
{
    const std::lock_guard guard (mutex);

    if (waiting.empty())
        return std::nullopt;

    const auto find = [this] (bool isRepeated) {
        return std::find_if (waiting.begin(), waiting.end(), [&] (const Fetch& fetch) {
            return fetch.isRepeated == isRepeated && ! isBusy (fetch.sender);
        });
    };

    auto next = find (false);

    if (next == waiting.end())
        next = find (true);

    if (next == waiting.end())
        next = waiting.begin();

    auto fetch = std::move (*next);
    waiting.erase (next);
    busy.push_back (fetch.sender);
    return fetch;
}

bool FetchQueue::isInTheWay (const Fetch& fetch) const
{
    const std::lock_guard guard (mutex);
    return ! fetch.isRepeated && std::any_of (waiting.begin(), waiting.end(), [&] (const Fetch& other) {
        return ! other.isRepeated && other.sender != fetch.sender && ! isBusy (other.sender);
    });
}

void FetchQueue::end (const Fetch& fetch)
{
    const std::lock_guard guard (mutex);

    if (const auto entry = std::find (busy.begin(), busy.end(), fetch.sender); entry != busy.end())
        busy.erase (entry);
}

bool FetchQueue::isBusy (const std::string& sender) const
{
    return std::find (busy.begin(), busy.end(), sender) != busy.end();
}

}
