// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "topology/Topology.h"

namespace veltra::topology {

/** One FIR filter for each channel at the full sample rate.

    Blob: for each channel in order the first T samples of its response as 32-bit little-endian floats, where T is
    the parameter "NbrOfFIRTaps"; no header, no padding. A response shorter than T is filled up with zeros. The
    filter's gain stays in the coefficients: nothing is scaled or windowed.

    Fails with "Required topology parameter not found", "Required topology parameter out of range" (a negative
    count, or a blob above 64 MiB), or "No filter response for channel " name " at " rate " Hz". Settings are not
    used.
*/
class FIRHandler final : public ITopology
{
public:
    void createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                           unsigned sampleRate, juce::MemoryBlock& blob, juce::PropertySet& settings) override;

    /** "NbrOfFIRTaps"; 0 when it is absent or negative. */
    unsigned getMaxTaps (const juce::StringPairArray& parameters, unsigned sampleRate) override;

    /** 0: the parameter "latency" is ignored. */
    float getLatencyMs (const juce::StringPairArray& parameters, unsigned sampleRate) override;

    /** TopologyEntry::readResponse. */
    static std::optional<Eigen::VectorXf> readResponse (const DeviceData& data, std::uint32_t channel,
                                                        std::string& problem);
};

}
