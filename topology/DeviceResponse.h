// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <Eigen/Core>
#include <juce_data_structures/juce_data_structures.h>

namespace veltra::topology {

/** What a device loaded: the bytes of one sample rate and what it knows of them. */
struct DeviceData
{
    juce::String topologyName;           ///< "FIR", "FIIR", "VLFIR" or "VLFIR2"
    juce::StringPairArray parameters;    ///< the topology's, as the conversion got them
    std::uint32_t sampleRate = 0;        ///< Hz
    std::uint32_t channelCount = 0;      ///< channels that the bytes should hold
    std::span<const std::uint8_t> bytes; ///< borrowed; may come from anywhere
};

/** What the device makes of an impulse on a channel: the filter as it is played, for comparison with the one that
    was asked for. It comes deviceDelay() samples late.

    @param channel  place of the channel in the data, below channelCount
    @param problem  receives words for a person when the data is not that of its topology
    @returns        the whole response; of the sections of a FIIR device one second
    @throws         std::bad_alloc
    Any thread.
*/
std::optional<Eigen::VectorXf> deviceResponse (const DeviceData& data, std::uint32_t channel, std::string& problem);

/** Samples by which a topology delays everything that it plays. */
unsigned deviceDelay (const juce::String& topologyName);

}
