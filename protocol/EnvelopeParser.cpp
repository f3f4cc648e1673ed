#include "protocol/EnvelopeParser.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include "protocol/Envelope.h"

namespace veltraio {

namespace {

constexpr std::size_t maximumMarkerSize = 64;
constexpr std::uint8_t defaultMarker[] = { 0x21, 0x01, 0xFF };

std::mutex markerLock;

std::vector<std::uint8_t>& processMarker()
{
    static std::vector<std::uint8_t> marker (std::begin (defaultMarker), std::end (defaultMarker));
    return marker;
}

}

void setEnvelopeMarker (std::span<const std::uint8_t> marker)
{
    if (marker.size() > maximumMarkerSize)
        throw std::invalid_argument ("The envelope marker is too long");

    if (marker.empty())
        marker = defaultMarker;

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

    if (count > 0 && now - lastFeed >= stalePause_ms)
        forget();

    lastFeed = now;

    for (std::uint32_t i = 0; i < size; ++i)
        take (data[i]);

    return true;
}

void VeltraIOEnvelopeParser::take (std::uint8_t byte)
{
    const auto position = static_cast<std::uint32_t> (count);
    const auto markerSize = static_cast<std::uint32_t> (marker.size());
    buffer[position] = byte;

    if (position < markerSize)
    {
        // A byte that breaks the marker is gone; it is not looked at again as the first byte of another one.
        count = byte == marker[position] ? count + 1 : 0;
        return;
    }

    ++count;

    if (position + 1 == markerSize + 4)
    {
        const auto length = juce::ByteOrder::bigEndianInt (buffer.data() + markerSize);
        const auto roomForBody = bufferSize - 1 - markerSize - static_cast<std::uint32_t> (envelopeFieldsSize);

        // Compared this way round so that no length can wrap the sum.
        if (length > roomForBody)
        {
            forget();
            return;
        }

        expected = static_cast<std::int32_t> (length);
    }

    if (expected >= 0 && position + 1 == markerSize + envelopeFieldsSize + static_cast<std::uint32_t> (expected))
    {
        const juce::MemoryBlock block (buffer.data() + markerSize + 4, static_cast<std::size_t> (expected) + 4 + 4);
        forget();
        onEnvelope (block);
    }
}

}
