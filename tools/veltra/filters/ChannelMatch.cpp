// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/ChannelMatch.h"

#include <algorithm>
#include <map>

#include "common/Text.h"

namespace veltra::host {

namespace {

/** What names are compared by. */
std::string keyOf (const std::string& name) { return juceText (name).trim().toLowerCase().toStdString(); }

/** A name for a message. */
std::string shown (const std::string& name, std::uint32_t number)
{
    return name.empty() ? "number " + std::to_string (number) : logText (name, 64);
}

template <typename Item>
std::map<std::string, std::vector<std::size_t>> placesByKey (const std::vector<Item>& items, bool byNumber)
{
    std::map<std::string, std::vector<std::size_t>> places;

    for (std::size_t i = 0; i < items.size(); ++i)
        places[byNumber ? std::to_string (items[i].number) : keyOf (items[i].name)].push_back (i);

    return places;
}

/** Joins the names of some items to "A, B, C". */
template <typename Item>
std::string namesOf (const std::vector<std::size_t>& places, const std::vector<Item>& items)
{
    std::string names;

    for (const auto place : places)
        names += (names.empty() ? "" : ", ") + shown (items[place].name, items[place].number);

    return names;
}

void add (std::string& problem, const std::string& part) { problem += (problem.empty() ? "" : "; ") + part; }

}

ChannelMatch matchChannels (const std::vector<NamedFilter>& filters, const std::vector<ReceiverChannel>& channels,
                            MatchOptions options)
{
    const auto filterPlaces = placesByKey (filters, options.byNumber);
    const auto channelPlaces = placesByKey (channels, options.byNumber);
    std::vector<std::optional<std::size_t>> filterOf (channels.size());
    std::vector<bool> isTwice (channels.size());
    ChannelMatch match;

    for (const auto& [key, places] : channelPlaces)
    {
        if (places.size() == 1)
            continue;

        add (match.problem, "the receiver has " + std::to_string (places.size()) + " channels "
                                + namesOf ({ places.front() }, channels));

        for (const auto place : places)
            isTwice[place] = true;
    }

    for (const auto& [key, places] : filterPlaces)
    {
        const auto channel = channelPlaces.find (key);

        if (channel == channelPlaces.end())
            match.surplus.insert (match.surplus.end(), places.begin(), places.end());
        else if (places.size() > 1)
        {
            add (match.problem,
                 std::to_string (places.size()) + " filters for " + namesOf ({ channel->second.front() }, channels));
            match.twice.insert (match.twice.end(), places.begin(), places.end());
            isTwice[channel->second.front()] = true;
        }
        else
            filterOf[channel->second.front()] = places.front();
    }

    std::ranges::sort (match.surplus);
    std::ranges::sort (match.twice);

    for (std::size_t i = channels.size(); i-- > 0;)
        if (filterOf[i])
            match.pairs.push_back ({ *filterOf[i], i });
        else if (! isTwice[i] && (channels[i].takesFilter || ! match.pairs.empty()))
            match.missing.push_back (i);

    std::ranges::reverse (match.pairs);
    std::ranges::reverse (match.missing);

    if (! options.partial)
    {
        if (! match.missing.empty())
            add (match.problem, "no filter for " + namesOf (match.missing, channels));

        if (! match.surplus.empty())
            add (match.problem, "no channel for " + namesOf (match.surplus, filters));
    }

    if (match.pairs.empty() && match.problem.empty())
        match.problem = "none of the filters has a channel";

    return match;
}

std::string matchTable (const ChannelMatch& match, const std::vector<NamedFilter>& filters,
                        const std::vector<ReceiverChannel>& channels)
{
    std::size_t width = 6;

    for (const auto& filter : filters)
        width = std::max (width, logText (filter.name, 64).size());

    const auto row = [width] (std::string left, const std::string& right) {
        left.resize (std::max (left.size(), width), ' ');
        return "  " + left + "  ->  " + right + "\n";
    };

    std::string table = row ("Filter", "channel of the receiver");

    for (const auto& pair : match.pairs)
    {
        const auto& channel = channels[pair.channel];
        table += row (logText (filters[pair.filter].name, 64), logText (channel.name, 64) + " (number "
                                                                   + std::to_string (channel.number) + ")"
                                                                   + (channel.takesFilter ? "" : ", plays without EQ"));
    }

    for (const auto place : match.twice)
        table += row (logText (filters[place].name, 64), "one of several for the same channel");

    for (const auto place : match.surplus)
        table += row (logText (filters[place].name, 64), "none");

    for (const auto place : match.missing)
        table += row ("none", logText (channels[place].name, 64));

    return table;
}

}
