// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ChannelName.h"

#include <charconv>

#include "tools/ExitStatus.h"
#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

namespace {

bool takeEnd (std::string_view& text, std::string_view mark)
{
    if (! text.ends_with (mark))
        return false;

    text.remove_suffix (mark.size());
    return true;
}

bool wholeNumber (std::string_view text, std::uint32_t& number, int base)
{
    const auto [end, error] = std::from_chars (text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

}

Channel channelFromText (std::string_view text)
{
    constexpr std::string_view mark = "#IDX";
    constexpr std::size_t digits = 2;

    Channel channel;
    auto rest = text;
    channel.takesFilter = ! takeEnd (rest, "#NOEQ");

    // The marks stand at the end in a fixed order, so a name that looks like a mark does no harm.
    const auto length = mark.size() + digits;

    if (rest.size() < length || rest.substr (rest.size() - length, mark.size()) != mark
        || ! wholeNumber (rest.substr (rest.size() - digits), channel.number, 16))
    {
        channel.name = text;
        channel.takesFilter = true;
        return channel;
    }

    rest.remove_suffix (length);
    channel.subwoofer = takeEnd (rest, "#SUB");
    channel.name = rest;
    return channel;
}

std::vector<Channel> channelsOf (const veltratune_io::Device& device)
{
    std::vector<Channel> channels;

    for (std::uint32_t i = 0; i < device.GetChannelCount(); ++i)
        channels.push_back (channelFromText (
            textFrom ([&] (char* buffer, std::uint32_t size) { device.GetChannelName (i, buffer, size); })));

    return channels;
}

std::uint32_t channelNumber (const veltratune_io::Device& device, const std::string& nameOrNumber)
{
    const auto channels = channelsOf (device);
    std::string names;

    for (const auto& channel : channels)
    {
        if (channel.name == nameOrNumber)
            return channel.number;

        names += (names.empty() ? "" : ", ") + channel.name;
    }

    std::uint32_t number = 0;

    if (wholeNumber (nameOrNumber, number, 10))
        for (const auto& channel : channels)
            if (channel.number == (number & 0xff))
                return number;

    throw Failure (kExitUsage, "The receiver has no channel " + nameOrNumber + "; it has " + names + ".");
}

}
