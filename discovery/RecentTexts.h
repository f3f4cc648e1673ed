// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>

namespace upnp {

/** A set of texts that forgets the oldest when it is full. Not thread-safe. */
class RecentTexts
{
public:
    explicit RecentTexts (std::size_t capacityToKeep) : capacity (capacityToKeep) {}

    bool contains (const std::string& text) const { return texts.contains (text); }

    void insert (const std::string& text)
    {
        const auto [position, isNew] = texts.insert (text);

        if (! isNew)
            return;

        order.push_back (&*position); // which stays where it is when the set grows

        if (texts.size() > capacity)
        {
            texts.erase (texts.find (*order.front()));
            order.pop_front();
        }
    }

private:
    const std::size_t capacity;
    std::unordered_set<std::string> texts;
    std::deque<const std::string*> order;
};

}
