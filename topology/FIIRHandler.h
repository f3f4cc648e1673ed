// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "topology/Topology.h"

namespace veltra::topology {

/** A short FIR filter in parallel with a bank of second-order sections, which take the input delayed by the
    number of taps.

    Blob: a slot of exactly T + 4 S 32-bit little-endian floats for each channel in order, where T is the parameter
    "NbrOfFIRTaps" and S "NbrOfIIRSections". A slot holds the taps, straight behind them a1, a2, b0, b1 of each
    section, and zeros up to its end.

    An IFIIRSource's coefficients are copied as they are. They may be fewer than the device has room for; only
    channel 0 is checked for too many, and what exceeds the slot of another channel is not written. A channel
    without coefficients at the rate leaves its slot at zeros.

    The channels of any other source are designed from their impulse responses (dsp/FIIRDesign.h), one job a channel
    on as many threads of low priority as there are processors, while the calling thread reports progress. A thread
    takes what one design takes of memory. A channel that cannot be designed gets its taps and sections of zeros.

    Fails with "Required topology parameters not found", "Required topology parameter out of range" (a negative
    count, or a blob above 64 MiB), "FIIR taps/sections mismatch: FIIR(" taps "/" sections ") vs. Device (" T "/" S
    ")", or the name of the first channel that has no response or could not be designed, with the reason. Settings
    are not used.
*/
class FIIRHandler final : public ITopology
{
public:
    explicit FIIRHandler (ProgressFunction progressFunction);

    void createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                           unsigned sampleRate, juce::MemoryBlock& blob, juce::PropertySet& settings) override;

    /** Half a second. */
    unsigned getMaxTaps (const juce::StringPairArray& parameters, unsigned sampleRate) override;

    /** 0: the parameter "latency" is ignored. */
    float getLatencyMs (const juce::StringPairArray& parameters, unsigned sampleRate) override;

    /** TopologyEntry::readResponse. */
    static std::optional<Eigen::VectorXf> readResponse (const DeviceData& data, std::uint32_t channel,
                                                        std::string& problem);

private:
    ProgressFunction progress;
};

}
