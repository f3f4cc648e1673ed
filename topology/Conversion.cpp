// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/Conversion.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "common/Numbers.h"
#include "common/Text.h"

namespace veltra::topology {

namespace {

float readFloat (const std::uint8_t* from)
{
    std::uint32_t word = 0;

    for (int i = 4; --i >= 0;)
        word = word << 8 | from[i];

    return std::bit_cast<float> (word);
}

}

std::optional<std::uint32_t> countParameter (const juce::StringPairArray& parameters, const char* key)
{
    const int value = toInt (parameters[key].toRawUTF8());
    return value < 0 ? std::nullopt : std::make_optional (static_cast<std::uint32_t> (value));
}

std::optional<size_t> blobSize (std::uint64_t channels, std::uint64_t wordsPerChannel)
{
    constexpr std::uint64_t maxWords = kMaxBlobBytes / 4;

    if (channels == 0 || wordsPerChannel == 0)
        return 0;

    if (wordsPerChannel > maxWords / channels)
        return std::nullopt;

    return static_cast<size_t> (channels * wordsPerChannel * 4);
}

juce::Result noFilterResponse (const std::string& channelName, unsigned sampleRate)
{
    return juce::Result::fail (juce::String::fromUTF8 (
        toValidUtf8 ("No filter response for channel " + channelName + " at " + std::to_string (sampleRate) + " Hz")
            .c_str()));
}

void FloatSlot::write (std::span<const float> values) noexcept
{
    values = values.first (std::min (values.size(), rest.size() / sizeof (float)));

    if constexpr (std::endian::native == std::endian::little)
    {
        if (! values.empty())
            std::memcpy (rest.data(), values.data(), values.size_bytes());
    }
    else
    {
        for (size_t i = 0; i < values.size(); ++i)
        {
            const auto word = std::bit_cast<std::uint32_t> (values[i]);

            for (unsigned byte = 0; byte < 4; ++byte)
                rest[4 * i + byte] = static_cast<char> (word >> (8 * byte));
        }
    }

    rest = rest.subspan (values.size_bytes());
}

void FloatSlot::write (std::span<const dsp::FIIRSection> sections) noexcept
{
    for (const auto& section : sections)
    {
        const float values[] { section.a1, section.a2, section.b0, section.b1 };
        write (values);
    }
}

std::optional<FloatFilter> readFloats (const DeviceData& data, std::uint32_t taps, std::uint32_t sections,
                                       std::uint32_t channel, std::string& problem)
{
    const auto size = blobSize (data.channelCount, std::uint64_t { taps } + 4 * std::uint64_t { sections });

    if (size != data.bytes.size())
    {
        problem = std::to_string (data.bytes.size()) + " bytes where its topology takes "
                  + (size ? std::to_string (*size) : "more than a device holds");
        return std::nullopt;
    }

    const auto* from = data.bytes.data() + data.bytes.size() / data.channelCount * channel;
    FloatFilter filter { Eigen::VectorXf (taps), {} };

    for (auto& tap : filter.taps)
    {
        tap = readFloat (from);
        from += 4;
    }

    for (std::uint32_t i = 0; i < sections; ++i, from += 16)
        filter.sections.push_back (
            { readFloat (from), readFloat (from + 4), readFloat (from + 8), readFloat (from + 12) });

    return filter;
}

std::optional<Eigen::VectorXf> responseOfFloats (const DeviceData& data, std::uint32_t taps, std::uint32_t sections,
                                                 std::uint32_t channel, std::string& problem)
{
    const auto filter = readFloats (data, taps, sections, channel, problem);

    if (! filter)
        return std::nullopt;

    const Eigen::Index tail = sections > 0 ? data.sampleRate : 0;
    Eigen::VectorXf response = Eigen::VectorXf::Zero (std::max<Eigen::Index> (taps + tail, 1));
    response.head (taps) = filter->taps;
    response.tail (tail) = dsp::impulseResponse (filter->sections, tail).cast<float>();
    return response;
}

}
