// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The bytes of a VLFIR blob, for whoever writes or reads one. All fields are 32-bit words, big-endian.

        header     4 + 4 + 4             magic BA BA CE CA, sample rate in Hz, channel count C
        records    32 or 48 for each     the words of VLFIRRecord in the generation's order
        tap data   4 for each tap        for each channel its high-rate taps, then its low-rate taps, without gaps

    Offsets count bytes from the start of the blob. Gains have 23 fraction bits, taps 29 (see FixedPoint.h).
*/

#include <cstddef>
#include <cstdint>
#include <span>

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
    const char* topologyName;
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

/** Writes a word; `to` has room for 4 bytes. */
constexpr void putWord (std::uint8_t* to, std::uint32_t word) noexcept
{
    for (int i = 0; i < 4; ++i)
        to[i] = static_cast<std::uint8_t> (word >> (24 - 8 * i));
}

/** Reads a word; `from` has 4 bytes. */
constexpr std::uint32_t getWord (const std::uint8_t* from) noexcept
{
    std::uint32_t word = 0;

    for (int i = 0; i < 4; ++i)
        word = word << 8 | from[i];

    return word;
}

}

}
