// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ReceiverChannels.h"

#include <algorithm>

namespace veltra::host {

std::vector<ServedRate> servedRates (const veltraio::Unit::Device& device, const veltraio::TopologyInfo& info)
{
    std::vector<ServedRate> served;

    for (const auto& configuration : device.configurations())
        for (const auto rate : configuration.samplerates())
        {
            if (std::ranges::find (served, rate, &ServedRate::sampleRate) != served.end())
                continue;

            const auto entry = std::find_if (info.topologies().begin(), info.topologies().end(),
                                             [rate] (const auto& one) { return one.samplerate() == rate; });

            if (entry != info.topologies().end() && ! entry->name().empty())
                served.push_back ({ rate,
                                    entry->name(),
                                    entry->information(),
                                    { configuration.channels().begin(), configuration.channels().end() } });
        }

    return served;
}

std::vector<ReceiverChannel> channelsOfReceiver (const veltraio::Unit::Device& device,
                                                 const std::vector<ServedRate>& rates)
{
    std::vector<std::uint32_t> numbers;

    // The longest list decides about the order; what only others have comes behind it.
    const auto longest = std::ranges::max_element (rates, {}, [] (const auto& rate) { return rate.channels.size(); });

    if (longest != rates.end())
        numbers = longest->channels;

    for (const auto& rate : rates)
        for (const auto number : rate.channels)
            if (std::ranges::find (numbers, number) == numbers.end())
                numbers.push_back (number);

    std::vector<ReceiverChannel> channels;

    for (const auto number : numbers)
    {
        ReceiverChannel channel { {}, number, true };

        for (const auto& info : device.outputchannels())
            if (info.channelindex() == number)
                channel = { info.name(), number, ! info.noeq() };

        channels.push_back (std::move (channel));
    }

    return channels;
}

}
