// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/Envelope.h"

#include <array>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/BigEndian.h"

namespace veltraio {

#if defined(__SSE2__)

namespace {

constexpr std::uint32_t powerOf31 (int exponent) { return exponent == 0 ? 1u : 31u * powerOf31 (exponent - 1); }

/** The low halves of four products. */
__m128i multiply (__m128i a, __m128i b)
{
    const auto even = _mm_mul_epu32 (a, b), odd = _mm_mul_epu32 (_mm_srli_si128 (a, 4), _mm_srli_si128 (b, 4));
    return _mm_unpacklo_epi32 (_mm_shuffle_epi32 (even, 0b1000), _mm_shuffle_epi32 (odd, 0b1000));
}

/** The hashes of four bytes each. Those of pairs, at most 255 * 32, fit the signed halves that are multiplied. */
__m128i hashFours (const char* bytes)
{
    const auto all = _mm_loadu_si128 (reinterpret_cast<const __m128i*> (bytes));
    const auto first = _mm_and_si128 (all, _mm_set1_epi16 (0xFF)), second = _mm_srli_epi16 (all, 8);
    const auto pairs = _mm_add_epi16 (_mm_sub_epi16 (_mm_slli_epi16 (first, 5), first), second);
    return _mm_madd_epi16 (pairs, _mm_set1_epi32 (powerOf31 (2) | 1u << 16));
}

}

std::uint32_t envelopeHash (const void* data, std::size_t size) noexcept
{
    constexpr std::size_t step = 32;
    const std::string_view all (static_cast<const char*> (data), size);
    const auto vectorised = size - size % step;
    auto hashes = _mm_setzero_si128(); // each of every fourth group of four bytes

    for (std::size_t i = 0; i < vectorised; i += step)
        hashes = _mm_add_epi32 (
            multiply (hashes, _mm_set1_epi32 (static_cast<int> (powerOf31 (32)))),
            _mm_add_epi32 (multiply (hashFours (all.data() + i), _mm_set1_epi32 (static_cast<int> (powerOf31 (16)))),
                           hashFours (all.data() + i + 16)));

    std::array<std::uint32_t, 4> part;
    _mm_storeu_si128 (reinterpret_cast<__m128i*> (part.data()), hashes);
    return envelopeHash (all.substr (vectorised),
                         part[0] * powerOf31 (12) + part[1] * powerOf31 (8) + part[2] * powerOf31 (4) + part[3]);
}

#else

std::uint32_t envelopeHash (const void* data, std::size_t size) noexcept
{
    return envelopeHash (std::string_view (static_cast<const char*> (data), size));
}

#endif

bool putEnvelope (juce::MemoryOutputStream& stream, const juce::MemoryBlock& marker, std::int32_t messageId,
                  const google::protobuf::MessageLite& message)
{
    // Protobuf throws, or writes to standard error, when it is asked for what it cannot do.
    if (! message.IsInitialized())
        return false;

    const auto headerSize = marker.getSize() + kEnvelopeFieldsSize;
    const auto bodySize = message.ByteSizeLong();

    if (bodySize > static_cast<std::size_t> (std::numeric_limits<std::int32_t>::max()) - headerSize)
        return false;

    // In place: a standard stream between the two would cost as much as the rest of the envelope.
    juce::MemoryBlock body (bodySize);
    message.SerializeWithCachedSizesToArray (static_cast<std::uint8_t*> (body.getData()));

    stream.write (marker.getData(), marker.getSize());

    for (const auto word : { static_cast<std::uint32_t> (bodySize), static_cast<std::uint32_t> (messageId),
                             envelopeHash (body.getData(), bodySize) })
    {
        std::array<char, 4> bytes;
        veltra::putBigEndian (bytes.data(), word);
        stream.write (bytes.data(), bytes.size());
    }

    return stream.write (body.getData(), bodySize);
}

std::optional<ReceivedEnvelope> getEnvelope (const juce::MemoryBlock& block) noexcept
{
    if (block.getSize() < 4 + 4)
        return std::nullopt;

    const auto* bytes = static_cast<const char*> (block.getData());
    const ReceivedEnvelope envelope { static_cast<std::int32_t> (veltra::getBigEndian (bytes)), bytes + 4 + 4,
                                      block.getSize() - 4 - 4 };

    if (envelopeHash (envelope.body, envelope.bodySize) != veltra::getBigEndian (bytes + 4))
        return std::nullopt;

    return envelope;
}

}
