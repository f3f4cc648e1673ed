// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The bytes of a blob of the dual-rate structure, and the records of its two generations that are written into one.
    All fields are 32-bit words, big-endian.

        header     4 + 4 + 4             magic BA BA CE CA, sample rate in Hz, channel count C
        records    32 or 48 for each     the words of VLFIRRecord in the generation's order
        tap data   4 for each tap        for each channel its high-rate taps, then its low-rate taps, without gaps

    Offsets count bytes from the start of the blob. Gains have 23 fraction bits, taps 29 (see toFixed).
*/

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veltra::topology {

enum class VLFIRGeneration
{
    first,
    second
};

/** The words of a channel record by name. The first generation has no stage gains. */
struct VLFIRRecord
{
    std::uint32_t channelWord = 0; ///< the channel's id times channelFactor
    std::uint32_t gain = 0;        ///< linear; the factor at or below 1 by which the taps were scaled down
    std::uint32_t stageGain1 = 0, stageGain2 = 0, stageGain3 = 0, stageGain4 = 0; ///< linear
    std::uint32_t highRateDelay = 0;                                              ///< samples
    std::uint32_t highRateTapCount = 0;
    std::uint32_t highRateOffset = 0;
    std::uint32_t reserved = 0;
    std::uint32_t lowRateTapCount = 0;
    std::uint32_t lowRateOffset = 0;
};

/** What the generations differ in. */
struct VLFIRLayout
{
    std::uint32_t channelFactor;
    std::size_t workingWords;                            ///< the device's buffer: no blob is longer
    std::span<std::uint32_t VLFIRRecord::*const> fields; ///< the record's words in their order

    constexpr std::size_t recordSize() const noexcept { return 4 * fields.size(); }
};

const VLFIRLayout& layoutOf (VLFIRGeneration generation) noexcept;

namespace vlfir {

inline constexpr std::uint32_t magic = 0xBABACECA;
inline constexpr std::size_t headerSize = 4 + 4 + 4;
/** Longest delay of the high-rate path that is taken for one: over a second at any rate, which is more than a
    conversion asks for. */
inline constexpr std::uint32_t maxHighRateDelay = 1u << 21;

inline constexpr int gainFractionBits = 23;
inline constexpr int tapFractionBits = 29;

}

/** A number as the device's processor takes it: two's complement with a fixed count of fraction bits.

    The arithmetic is single precision throughout, so the low bits of a converted number are those of a 32-bit
    float: value * 2^fractionBits, plus 0.5, rounded down. What lies below -2^31 or above 2^31 counts as clipped
    and is set to that bound; 2^31 itself, clipped or not, wraps to 0x80000000, the most negative word, because
    that is what the processor's own conversion makes of it and what existing devices receive. A value that is
    not a number becomes 0 and counts as clipped.

    @param fractionBits  from 0 to 31
    @param clipCount     goes up by one when the value is clipped
*/
std::uint32_t toFixed (float value, int fractionBits, int& clipCount) noexcept;

/** The value of a word; exact for every word that toFixed gives. */
float fromFixed (std::uint32_t word, int fractionBits) noexcept;

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

    The gain, delay, stage and reserved words of a channel whose channelWord is not a multiple of channelFactor are
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
