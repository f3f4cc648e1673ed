// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ChannelName.h"

#include "tools/ExitStatus.h"
#include "tools/veltra/session/DeviceSession.h"
#include "tools/veltra/session/StrictNumber.h"

namespace veltra::host {

namespace {

bool takeEnd (std::string_view& text, std::string_view mark)
{
    if (! text.ends_with (mark))
        return false;

    text.remove_suffix (mark.size());
    return true;
}

}

Channel channelFromText (std::string_view text)
{
    constexpr std::string_view mark = "#IDX";
    constexpr std::size_t digits = 2;

    Channel channel;
    auto rest = text;
    channel.takesFilter = ! takeEnd (rest, "#NOEQ");

    // The marks are at the end in a fixed order, so a name that looks like a mark does no harm.
    const auto length = mark.size() + digits;

    const bool isMarked = rest.size() >= length && rest.substr (rest.size() - length, mark.size()) == mark;
    const auto number = isMarked ? strictNumber<std::uint32_t> (rest.substr (rest.size() - digits), 16) : std::nullopt;

    if (! number)
    {
        channel.name = text;
        channel.takesFilter = true;
        return channel;
    }

    channel.number = *number;
    rest.remove_suffix (length);
    channel.subwoofer = takeEnd (rest, "#SUB");
    channel.name = rest;
    return channel;
}

std::vector<Channel> outputChannels (const veltratune_io::Device& device)
{
    std::vector<Channel> channels;

    for (std::uint32_t i = 0; i < device.GetChannelCount(); ++i)
        channels.push_back (channelFromText (
            textFrom ([&] (char* buffer, std::uint32_t size) { device.GetChannelName (i, buffer, size); })));

    return channels;
}

std::uint32_t channelNumber (const veltratune_io::Device& device, const std::string& nameOrNumber)
{
    const auto channels = outputChannels (device);
    std::string names;

    for (const auto& channel : channels)
    {
        if (channel.name == nameOrNumber)
            return channel.number;

        names += (names.empty() ? "" : ", ") + channel.name;
    }

    if (const auto number = strictNumber<std::uint32_t> (nameOrNumber))
        for (const auto& channel : channels)
            if (channel.number == (*number & 0xff))
                return *number;

    throw Failure (kExitUsage, "The receiver has no channel " + nameOrNumber + "; it has " + names + ".");
}

}
