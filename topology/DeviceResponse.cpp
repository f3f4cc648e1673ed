// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/DeviceResponse.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "dsp/BandSplitFilters.h"
#include "topology/Conversion.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::topology {

namespace {

using Eigen::Index;
using Eigen::VectorXf;

float readFloat (const std::uint8_t* from)
{
    std::uint32_t word = 0;

    for (int i = 4; --i >= 0;)
        word = word << 8 | from[i];

    return std::bit_cast<float> (word);
}

/** Adds the impulse response of (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2) in double precision: a pole close to the unit
    circle must not lose its decay in rounding. */
void addSection (Eigen::Ref<VectorXf> response, double a1, double a2, double b0, double b1)
{
    double before = 0.0, last = 0.0;

    for (Index n = 0; n < response.size(); ++n)
    {
        const double now = (n == 0 ? b0 : n == 1 ? b1 : 0.0) - a1 * last - a2 * before;
        response[n] += static_cast<float> (now);
        before = last;
        last = now;
    }
}

/** FIR and FIIR data is floats, the same number for each channel: taps, and four for each section. */
std::optional<VectorXf> responseOfFloats (const DeviceData& data, std::uint32_t channel, std::string& problem)
{
    const bool hasSections = data.topologyName == "FIIR";
    const auto taps = countParameter (data.parameters, "NbrOfFIRTaps").value_or (0);
    const auto sections = hasSections ? countParameter (data.parameters, "NbrOfIIRSections").value_or (0) : 0;
    const auto size = blobSize (data.channelCount, std::uint64_t { taps } + 4 * std::uint64_t { sections });

    if (size != data.bytes.size())
    {
        problem = std::to_string (data.bytes.size()) + " bytes where its topology takes "
                  + (size ? std::to_string (*size) : "more than a device holds");
        return std::nullopt;
    }

    const auto* from = data.bytes.data() + data.bytes.size() / data.channelCount * channel;
    const Index tail = sections > 0 ? data.sampleRate : 0;
    VectorXf response = VectorXf::Zero (std::max<Index> (taps + tail, 1));

    for (std::uint32_t i = 0; i < taps; ++i, from += 4)
        response[i] = readFloat (from);

    for (std::uint32_t i = 0; i < sections; ++i, from += 16)
        addSection (response.tail (tail), readFloat (from), readFloat (from + 4), readFloat (from + 8),
                    readFloat (from + 12));

    return response;
}

std::optional<VectorXf> responseOfBlob (const DeviceData& data, std::uint32_t channel, std::string& problem)
{
    const auto contents =
        readVLFIRBlob (data.bytes, data.topologyName == "VLFIR" ? VLFIRGeneration::first : VLFIRGeneration::second);

    if (! contents.problems.empty())
        problem = contents.problems.front();
    else if (contents.channelCount != data.channelCount)
        problem = "the blob has " + std::to_string (contents.channelCount) + " channels instead of "
                  + std::to_string (data.channelCount);
    else
        return impulseResponse (contents.channels[channel]);

    return std::nullopt;
}

}

std::optional<VectorXf> deviceResponse (const DeviceData& data, std::uint32_t channel, std::string& problem)
{
    if (channel >= data.channelCount)
        problem = "there is no channel at place " + std::to_string (channel);
    else if (data.topologyName == "FIR" || data.topologyName == "FIIR")
        return responseOfFloats (data, channel, problem);
    else if (data.topologyName == "VLFIR" || data.topologyName == "VLFIR2")
        return responseOfBlob (data, channel, problem);
    else
        problem = "there is no topology " + data.topologyName.toStdString();

    return std::nullopt;
}

unsigned deviceDelay (const juce::String& topologyName)
{
    return topologyName.startsWith ("VLFIR") ? dsp::kBandSplitDelay : 0;
}

}
