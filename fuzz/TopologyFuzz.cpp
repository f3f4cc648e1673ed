// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What a receiver says of its filter structure, through the conversion. The lines of the input:

        VLFIR2                          name of the structure
        48000                           sample rate in Hz
        64 8 0                          taps of each channel's response, at most 4096
        NbrOfFIRTaps=16;latency=32      parameter string, up to the end
*/

#include <algorithm>
#include <vector>

#include "common/Numbers.h"
#include "common/Text.h"
#include "fuzz/FuzzTarget.h"
#include "tests/support/TestSource.h"
#include "topology/Conversion.h"
#include "topology/Topology.h"

namespace {

using namespace veltra;
using fuzz::require;

constexpr int mostTaps = 4096;
constexpr std::size_t mostChannels = 4;

/** Responses that decay, as a room's do, with sections that would. */
std::vector<test::TestChannel> makeChannels (std::string_view sizes)
{
    std::vector<test::TestChannel> channels;

    while (! sizes.empty() && channels.size() < mostChannels)
    {
        test::TestChannel channel;
        channel.response.resize (std::clamp (toInt (fuzz::cutUpTo (' ', sizes)), 0, mostTaps));

        for (Eigen::Index n = 0; n < channel.response.size(); ++n)
            channel.response[n] = (n % 3 == 0 ? 1.0f : -0.25f) / static_cast<float> (n + 1);

        channel.data.taps = channel.response.head (channel.response.size() / 2);
        channel.data.sections.resize (channels.size(), { -1.5f, 0.6f, 0.01f, 0.02f });
        channel.maxGaindB = 3.0f * static_cast<float> (channels.size());
        channels.push_back (std::move (channel));
    }

    return channels;
}

template <class Source>
void convert (topology::ITopology& topology, Source source, const juce::StringPairArray& parameters,
              unsigned sampleRate)
{
    juce::PropertySet settings;
    auto result = juce::Result::ok();
    juce::MemoryBlock blob;
    topology.createFilterData (result, source, parameters, sampleRate, blob, settings);

    require (result.wasOk() || result.getErrorMessage().isNotEmpty(), "a failure has a text");
    require (result.failed() || blob.getSize() <= topology::kMaxBlobBytes, "a blob is bounded");
}

}

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    auto rest = fuzz::asText (data, size);
    const auto name = juceText (fuzz::cutUpTo ('\n', rest));
    const auto topology = topology::createTopology (name, {});

    if (topology == nullptr)
        return 0;

    const auto sampleRate = static_cast<unsigned> (toInt (fuzz::cutUpTo ('\n', rest)));
    const auto channels = makeChannels (fuzz::cutUpTo ('\n', rest));
    const auto parameters = topology::parseParameters (juceText (rest));

    topology->getMaxTaps (parameters, sampleRate);
    topology->getLatencyMs (parameters, sampleRate);

    // Without coefficients the FIIR form is designed, which takes seconds and reads no more of the parameters.
    if (name != "FIIR")
        convert (*topology, test::FIRTestSource (channels), parameters, sampleRate);

    convert (*topology, test::FIIRTestSource (channels), parameters, sampleRate);
    return 0;
}
