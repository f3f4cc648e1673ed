// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/EnvelopeParser.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "common/BigEndian.h"
#include "protocol/Envelope.h"

namespace veltraio {

namespace {

constexpr std::size_t kMaximumMarkerSize = 64;
constexpr std::size_t kLengthSize = 4;

std::mutex markerLock;

std::vector<std::uint8_t>& processMarker()
{
    static std::vector<std::uint8_t> marker (kDefaultEnvelopeMarker.begin(), kDefaultEnvelopeMarker.end());
    return marker;
}

}

void setEnvelopeMarker (std::span<const std::uint8_t> marker)
{
    if (marker.size() > kMaximumMarkerSize)
        throw std::invalid_argument ("The envelope marker is too long");

    if (marker.empty())
        marker = kDefaultEnvelopeMarker;

    const std::lock_guard guard (markerLock);
    processMarker().assign (marker.begin(), marker.end());
}

std::vector<std::uint8_t> getEnvelopeMarker()
{
    const std::lock_guard guard (markerLock);
    return processMarker();
}

VeltraIOEnvelopeParser::VeltraIOEnvelopeParser (veltra::MillisecondClock clockToUse)
    : clock (std::move (clockToUse)),
      marker (getEnvelopeMarker())
{
}

void VeltraIOEnvelopeParser::forget() noexcept
{
    count = 0;
    expected = -1;
}

bool VeltraIOEnvelopeParser::feed (const std::uint8_t* data, std::uint32_t size)
{
    const auto now = clock();

    if (count > 0 && now - lastFeed >= kStalePause_ms)
        forget();

    lastFeed = now;

    for (std::span rest (data, size); ! rest.empty();)
    {
        if (expected >= 0)
        {
            rest = rest.subspan (takeRest (rest));
        }
        else
        {
            takeOpening (rest.front());
            rest = rest.subspan (1);
        }
    }

    return true;
}

void VeltraIOEnvelopeParser::takeOpening (std::uint8_t byte)
{
    buffer[count] = byte;

    // A byte that breaks the marker is gone; it is not looked at again as the first byte of another one.
    if (count < marker.size() && byte != marker[count])
        count = 0;
    else if (++count == marker.size() + kLengthSize)
        readLength();
}

void VeltraIOEnvelopeParser::readLength()
{
    const auto length = veltra::getBigEndian (buffer.data() + marker.size());

    // Compared this way round so that no length can wrap the sum.
    if (length > kBufferSize - 1 - marker.size() - kEnvelopeFieldsSize)
        forget();
    else
        expected = static_cast<std::int32_t> (length);
}

std::size_t VeltraIOEnvelopeParser::takeRest (std::span<const std::uint8_t> bytes)
{
    const auto whole = marker.size() + kEnvelopeFieldsSize + static_cast<std::size_t> (expected);
    const auto taken = std::min (bytes.size(), whole - count);
    std::copy_n (bytes.begin(), taken, buffer.begin() + static_cast<std::ptrdiff_t> (count));
    count += taken;

    if (count == whole)
    {
        const auto start = marker.size() + kLengthSize;
        const juce::MemoryBlock block (buffer.data() + start, whole - start);
        forget();
        onEnvelope (block);
    }

    return taken;
}

}
