// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "topology/VLFIRLayout.h"

/** @file
    The filter records of the two generations of the dual-rate structure, and the writers that turn them into the
    device's blob (VLFIRLayout.h has the bytes).
*/

namespace veltra::topology {

/** First generation: topology "VLFIR". */
namespace VFIIR {

inline constexpr std::uint32_t channelFactor = 9;

/** The buffer of the device that takes the whole blob. */
struct SFilterBlock
{
    static constexpr std::size_t words = 132364;
};

/** One channel. The taps are borrowed: they stay with the caller until the blob is written. */
struct SFilter
{
    static constexpr auto generation = VLFIRGeneration::first;

    const float* lowRateTaps = nullptr;
    std::uint32_t lowRateTapCount = 0;
    std::uint32_t reserved = 0;
    const float* highRateTaps = nullptr;
    std::uint32_t highRateTapCount = 0;
    std::uint32_t highRateDelay = 0; ///< samples
    std::uint32_t channelWord = 0;   ///< channel id times channelFactor
    double gaindB = 0.0;             ///< the attenuation in dB, negated
};

/** Writes the blob of a set of channels.

    The gain, delay, stage and reserved words of a channel whose channelWord is no multiple of channelFactor are
    written as 0.

    @param sampleRate  in Hz
    @param blob        receives the bytes; stays as it was on failure
    @param clipCount   goes up by the number of gains and taps that had to be clipped; may be null
    @returns           the length in bytes, or -1 when memory ran out or the device's buffer cannot hold the blob
*/
int makeBlob (unsigned sampleRate, std::span<const SFilter> filters, std::vector<std::uint8_t>& blob, int* clipCount);

}

/** Second generation: topology "VLFIR2". */
namespace VFIIR2 {

inline constexpr std::uint32_t channelFactor = 13;

struct SFilterBlock
{
    static constexpr std::size_t words = 198220;
};

/** One channel, with four gains that the device can apply between its stages, in whole dB. */
struct SFilter
{
    static constexpr auto generation = VLFIRGeneration::second;

    const float* lowRateTaps = nullptr;
    std::uint32_t lowRateTapCount = 0;
    std::uint32_t reserved = 0;
    std::uint32_t stageGain1dB = 0;
    std::uint32_t stageGain2dB = 0;
    const float* highRateTaps = nullptr;
    std::uint32_t highRateTapCount = 0;
    std::uint32_t highRateDelay = 0;
    std::uint32_t stageGain3dB = 0;
    std::uint32_t stageGain4dB = 0;
    std::uint32_t channelWord = 0;
    double gaindB = 0.0;
};

/** As the first generation's. */
int makeBlob (unsigned sampleRate, std::span<const SFilter> filters, std::vector<std::uint8_t>& blob, int* clipCount);

}

/** Bytes that a blob takes: a header, records, and two rows of taps for each of the channels. */
constexpr std::uint64_t vlfirBlobSize (const VLFIRLayout& layout, std::uint64_t channels,
                                       std::uint64_t tapsOfAllRows) noexcept
{
    return vlfir::headerSize + channels * layout.recordSize() + 4 * tapsOfAllRows;
}

}
