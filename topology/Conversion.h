// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <Eigen/Core>
#include <juce_data_structures/juce_data_structures.h>

#include "dsp/FIIRSection.h"
#include "topology/Topology.h"

/** @file What the topology handlers share: counts from the parameter string, the limit of a blob, the layout of blobs
    that consist of floats, and the texts of failures that several of them have. Any thread. */

namespace veltra::topology {

/** Largest blob that a conversion makes. No device holds as much; what asks for more is a broken or hostile
    parameter string. */
inline constexpr std::uint64_t kMaxBlobBytes = 64u * 1024u * 1024u;

inline constexpr const char* kParameterOutOfRange = "Required topology parameter out of range";

/** Value of a parameter that counts something; a text that is not a number counts 0.
    @returns  nothing when the number is negative
*/
std::optional<std::uint32_t> countParameter (const juce::StringPairArray& parameters, const char* key);

/** Size in bytes of a blob that holds the same number of 32-bit words for each channel.
    @returns  nothing when it is above kMaxBlobBytes
*/
std::optional<size_t> blobSize (std::uint64_t channels, std::uint64_t wordsPerChannel);

/** The failure of a conversion that meets a channel without a response at its rate: zeros in its place would
    silence the loudspeaker. */
juce::Result noFilterResponse (const std::string& channelName, unsigned sampleRate);

/** Writes a channel's values into its part of a blob, as 32-bit IEEE floats in little-endian byte order, one after the
    other. What does not fit is not written. Borrows the memory; one thread at a time.
*/
class FloatSlot
{
public:
    explicit FloatSlot (std::span<char> place) noexcept : rest (place) {}

    void write (std::span<const float> values) noexcept;

    /** Writes each section as a1, a2, b0, b1. */
    void write (std::span<const dsp::FIIRSection> sections) noexcept;

private:
    std::span<char> rest;
};

/** A channel of a blob of floats. */
struct FloatFilter
{
    Eigen::VectorXf taps;
    std::vector<dsp::FIIRSection> sections; ///< in parallel, behind the taps
};

/** Reads back a blob of floats, with the same number for each channel: taps, and four for each section.

    @param channel  below data.channelCount
    @returns        nothing, and the reason in `problem`, when the data has another length
    @throws         std::bad_alloc
*/
std::optional<FloatFilter> readFloats (const DeviceData& data, std::uint32_t taps, std::uint32_t sections,
                                       std::uint32_t channel, std::string& problem);

/** The response of a channel of a blob of floats: its taps, with one second of the sections behind them when the topology has
    any. The rest as readFloats. */
std::optional<Eigen::VectorXf> responseOfFloats (const DeviceData& data, std::uint32_t taps, std::uint32_t sections,
                                                 std::uint32_t channel, std::string& problem);

}
