// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/ImportFiles.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/veltra/session/StrictNumber.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

constexpr unsigned kHighestRate = 1536000;
constexpr unsigned kHighestChannel = 65536;
constexpr double kLongestDelay_ms = 10000.0;

/** A whole number from 1 to highest. */
std::optional<unsigned> number (std::string_view text, unsigned highest)
{
    const auto value = strictNumber<unsigned> (text);
    return value && *value >= 1 && *value <= highest ? value : std::nullopt;
}

/** Takes the first word of a text, and the blanks behind it, off the text. */
std::string_view takeWord (std::string_view& text)
{
    const auto word = text.substr (0, text.find_first_of (" \t"));
    text = trimmed (text.substr (word.size()));
    return word;
}

bool holds (const std::vector<ChannelPlace>& places, std::string_view name)
{
    return std::ranges::any_of (places, [&] (const auto& place) { return place.name == name; });
}

void add (std::vector<ChannelPlace>& places, std::string_view name, unsigned channelNumber)
{
    for (const auto& place : places)
        if (place.name == name || place.number == channelNumber)
            throw Failure (kExitUsage, "The channel order names " + place.name + " (number "
                                           + std::to_string (place.number) + ") twice.");

    places.push_back ({ std::string (name), channelNumber });
}

std::vector<ChannelPlace> readOrder (std::string_view order)
{
    std::vector<ChannelPlace> places;
    unsigned next = 1;

    while (! order.empty())
    {
        const auto comma = order.find (',');
        const auto item = trimmed (order.substr (0, comma));
        order = comma == order.npos ? std::string_view() : order.substr (comma + 1);

        const auto equals = item.find ('=');
        const auto name = trimmed (item.substr (0, equals));
        const auto given =
            equals == item.npos ? std::optional (next) : number (trimmed (item.substr (equals + 1)), kHighestChannel);

        if (name.empty() || ! given)
            throw Failure (kExitUsage,
                           "'" + std::string (item) + "' in the channel order is neither NAME nor NAME=NUMBER.");

        add (places, name, *given);
        next = *given + 1;
    }

    return places;
}

}

ImpulseFile channelFile (std::string_view text)
{
    const auto equals = text.find ('=');
    const auto name = trimmed (text.substr (0, equals));

    if (equals == text.npos || name.empty() || trimmed (text.substr (equals + 1)).empty())
        throw Failure (kExitUsage,
                       "'" + std::string (text) + "' is not a channel's file; expected NAME=FILE or NAME=FILE:N.");

    ImpulseFile file { std::string (name), 0, fs::path (text.substr (equals + 1)) };
    const auto path = text.substr (equals + 1);

    if (const auto colon = path.rfind (':'); colon != path.npos && ! fs::exists (file.path))
        if (const auto part = strictNumber<unsigned> (path.substr (colon + 1)))
        {
            file.path = path.substr (0, colon);
            file.part = *part;
        }

    return file;
}

std::vector<std::string> namesInOrder (std::string_view order)
{
    std::vector<std::string> names;

    for (const auto& place : readOrder (order))
        names.push_back (place.name);

    return names;
}

ImpulseFile impulseFileFromName (const fs::path& file)
{
    const auto stem = file.stem().string();
    const auto mark = stem.rfind ('_');

    if (mark != stem.npos && mark > 0)
        if (const auto rate = number (std::string_view (stem).substr (mark + 1), kHighestRate))
            return { stem.substr (0, mark), *rate, file };

    throw Failure (kExitInput, "The name of " + file.string()
                                   + " does not give channel and rate as FL_48000.wav does; "
                                     "a mapping file can (--map FILE).");
}

std::optional<double> delayIn_ms (std::string_view text)
{
    std::optional<double> delay;

    if (text.ends_with ("ms"))
        delay = strictNumber<double> (text.substr (0, text.size() - 2));
    else if (const auto mark = text.find ("smp@"); mark != text.npos)
        if (const auto samples = strictNumber<double> (text.substr (0, mark)))
            if (const auto rate = number (text.substr (mark + 4), kHighestRate))
                delay = 1000.0 * *samples / *rate;

    return delay && *delay >= 0.0 && *delay <= kLongestDelay_ms ? delay : std::nullopt;
}

std::vector<ImpulseFile> readMapping (const fs::path& file)
{
    constexpr std::size_t largest = 1u << 20;
    const auto text = readInput (file, largest);

    if (text.size() > largest)
        throw Failure (kExitInput, inputName (file) + " is too large for a mapping file.");

    std::istringstream stream (text);
    std::vector<ImpulseFile> files;
    std::string line;

    for (int lineNumber = 1; std::getline (stream, line); ++lineNumber)
    {
        auto rest = trimmed (line);

        if (rest.empty() || rest.front() == '#')
            continue;

        const auto channel = takeWord (rest);
        const auto rate = number (takeWord (rest), kHighestRate);

        std::optional<double> gain_dB, delay_ms;
        std::string_view wrong;

        for (bool isGain; (isGain = rest.starts_with ("gain=")) || rest.starts_with ("delay=");)
        {
            const auto word = takeWord (rest);
            auto& value = isGain ? gain_dB : delay_ms;
            const auto given = word.substr (word.find ('=') + 1);
            value = isGain ? strictNumber<double> (given) : delayIn_ms (given);
            wrong = value ? wrong : word;
        }

        if (! rate || rest.empty() || ! wrong.empty())
            throw Failure (
                kExitInput,
                "Line " + std::to_string (lineNumber) + " of " + inputName (file)
                    + (wrong.empty() ? "" : ": found '" + logText (wrong, 60) + "'")
                    + ": expected CHANNEL RATE FILE, with gain=DB and delay=4.2ms or delay=48smp@HZ before FILE.");

        files.push_back (
            { std::string (channel), *rate, file.parent_path() / fs::path (rest), {}, {}, gain_dB, delay_ms });
    }

    return files;
}

std::vector<ChannelPlace> numberChannels (const std::vector<ImpulseFile>& files, std::string_view order)
{
    auto places = readOrder (order);
    const bool orderGiven = ! places.empty();

    for (const auto& file : files)
    {
        if (holds (places, file.channel))
            continue;

        if (orderGiven)
            throw Failure (kExitUsage, "Channel " + file.channel + " of " + file.path.string()
                                           + " is missing in the channel order.");

        add (places, file.channel, static_cast<unsigned> (places.size()) + 1);
    }

    for (const auto& place : places)
        if (std::ranges::none_of (files, [&] (const auto& file) { return file.channel == place.name; }))
            throw Failure (kExitUsage, "There is no file for channel " + place.name + " of the channel order.");

    std::ranges::sort (places, {}, &ChannelPlace::number);
    return places;
}

std::vector<ChannelPlace> placeChannels (std::vector<ImpulseFile>& files, const std::vector<ReceiverChannel>& channels,
                                         bool partial)
{
    std::vector<NamedFilter> named;

    for (const auto& file : files)
        if (std::ranges::find (named, file.channel, &NamedFilter::name) == named.end())
            named.push_back ({ file.channel });

    const auto match = matchChannels (named, channels, { .partial = partial });

    if (! match.problem.empty())
        throw Failure (kExitChannels,
                       "The files are not those of the receiver's channels: " + match.problem + "; see --partial.");

    std::vector<ChannelPlace> places;

    for (const auto& pair : match.pairs)
    {
        const auto& channel = channels[pair.channel];
        places.push_back ({ channel.name, channel.number + 1 });

        for (auto& file : files)
            if (file.channel == named[pair.filter].name)
                file.channel = channel.name;
    }

    return places;
}

}
