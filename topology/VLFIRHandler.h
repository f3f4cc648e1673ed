// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "topology/Topology.h"
#include "topology/VLFIRBlob.h"

namespace veltra::topology {

/** The dual-rate structure of the receiver's processor: a short filter at the full sample rate beside one of the
    same length at a sixteenth of it, which together cover 16 T samples of low-frequency response for the price of
    2 T taps. VLFIRSplit.h describes how a response is split, VLFIRBlob.h what the device receives.

    Parameters: "NbrOfFIRTaps" (T, required), "latency" (samples, default 256). Settings: "MaxFilterAttenuation"
    (dB, limits how far boosting filters are scaled down), "BlobPath" (a folder; turns the dump on, see VLFIRDump.h).

    Instantiated for the records of both generations.
*/
template <class SFilterBlock, class SFilter>
class VLFIRHandler : public ITopology
{
public:
    void createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                           unsigned sampleRate, juce::MemoryBlock& blob, juce::PropertySet& settings) override;

    unsigned getMaxTaps (const juce::StringPairArray& parameters, unsigned sampleRate) override;
    float getLatencyMs (const juce::StringPairArray& parameters, unsigned sampleRate) override;

    /** TopologyEntry::readResponse. */
    static std::optional<Eigen::VectorXf> readResponse (const DeviceData& data, std::uint32_t channel,
                                                        std::string& problem);

    /** Sets all fields of a channel's record. The record borrows the taps. */
    virtual void fillFilter (SFilter& record, const Eigen::VectorXf& highRate, const Eigen::VectorXf& lowRate,
                             unsigned highRateDelay, unsigned channelId, float attenuationdB);
};

/** Topology "VLFIR2": the second generation numbers its channels by a factor of its own. */
class VLFIR2Handler : public VLFIRHandler<VFIIR2::SFilterBlock, VFIIR2::SFilter>
{
public:
    void fillFilter (VFIIR2::SFilter& record, const Eigen::VectorXf& highRate, const Eigen::VectorXf& lowRate,
                     unsigned highRateDelay, unsigned channelId, float attenuationdB) override;
};

}
