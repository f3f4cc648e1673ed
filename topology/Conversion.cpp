// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/Conversion.h"

#include "common/Numbers.h"
#include "common/Text.h"

namespace veltra::topology {

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

}
