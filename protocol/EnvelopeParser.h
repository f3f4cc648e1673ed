// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include <juce_core/juce_core.h>

#include "common/Clock.h"

namespace veltraio {

/** The bytes that open each envelope, for the whole process: kDefaultEnvelopeMarker unless others are set.

    A parser takes the marker that holds when it is made and keeps it. An empty list restores the default.
    @throws std::invalid_argument for more than 64 bytes. Any thread.
*/
void setEnvelopeMarker (std::span<const std::uint8_t> marker);
std::vector<std::uint8_t> getEnvelopeMarker();

/** Finds envelopes in a byte stream (docs/wire-format.md has their layout).

    All other bytes are skipped silently: noise, an envelope that is longer than the buffer, and the beginning of one
    that stops arriving for a second. The handler that waits for the lost message sees a time-out.

    The object holds a buffer of 32 KiB. One thread at a time.
*/
class VeltraIOEnvelopeParser
{
public:
    /** The largest envelope that can be received is one byte less, marker and header included. */
    static constexpr std::uint32_t kBufferSize = 32768;

    /** A partial envelope is dropped when so long a pause, or a longer one, lies between two feeds. */
    static constexpr std::int64_t kStalePause_ms = 1000;

    explicit VeltraIOEnvelopeParser (veltra::MillisecondClock clock = veltra::steadyMilliseconds);
    virtual ~VeltraIOEnvelopeParser() = default;

    VeltraIOEnvelopeParser (const VeltraIOEnvelopeParser&) = delete;
    VeltraIOEnvelopeParser& operator= (const VeltraIOEnvelopeParser&) = delete;

    /** Takes the next bytes of the stream, in pieces of any size, and calls onEnvelope for each envelope that they
        complete. A feed of no bytes counts for the pause all the same. An exception out of onEnvelope passes
        through; the envelope then counts as delivered, and the rest of the piece is lost.
        @returns true, always
    */
    bool feed (const std::uint8_t* data, std::uint32_t size);

private:
    /** An envelope without marker and length: identifier, checksum (both big-endian, unchecked) and body. */
    virtual void onEnvelope (const juce::MemoryBlock& block) = 0;

    /** Takes one byte of marker or length. */
    void takeOpening (std::uint8_t byte);
    void readLength();

    /** Takes what belongs to this envelope behind its length. @returns how many bytes that were */
    std::size_t takeRest (std::span<const std::uint8_t> bytes);
    void forget() noexcept;

    const veltra::MillisecondClock clock;
    const std::vector<std::uint8_t> marker;
    std::size_t count = 0;      // bytes now in buffer
    std::int32_t expected = -1; // length of the body being collected, -1 while unknown
    std::int64_t lastFeed = 0;  // milliseconds
    std::array<std::uint8_t, kBufferSize> buffer;
};

}
