// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The bytes around a message; all integers are big-endian, there is no padding:

        marker     3   0x21 0x01 0xFF (configurable, so that all that follows moves with its length)
        length     4   bytes of the body
        messageId  4   IdType<T>::value
        checksum   4   envelope hash of the body
        body       length bytes, the message's protobuf serialisation
*/

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <google/protobuf/message_lite.h>
#include <juce_core/juce_core.h>

namespace veltraio {

/** The hash of the device protocol: h = h * 31 + byte in 32-bit arithmetic from 0, bytes taken as unsigned.

    Over an envelope's body it is the checksum, over a message's full name the message's identifier. The empty
    text hashes to 0. It detects transmission faults; it does not protect against forged messages.

    @param hash  that of the bytes before these
*/
constexpr std::uint32_t envelopeHash (std::string_view bytes, std::uint32_t hash = 0) noexcept
{
    const auto value = [&] (std::size_t i) { return std::uint32_t { static_cast<unsigned char> (bytes[i]) }; };
    std::size_t i = 0;

    // Four at a time: a step for each byte would have to wait for the one before.
    for (; i + 4 <= bytes.size(); i += 4)
        hash = hash * (31u * 31u * 31u * 31u) + value (i) * (31u * 31u * 31u) + value (i + 1) * (31u * 31u)
               + value (i + 2) * 31u + value (i + 3);

    for (; i < bytes.size(); ++i)
        hash = hash * 31u + value (i);

    return hash;
}

/** The same for bodies, in three times the speed where the processor has SSE2. */
std::uint32_t envelopeHash (const void* data, std::size_t size) noexcept;

/** Not a message of the schema: registers a handler for every message. */
struct AnyMessage
{
};

/** The identifier of message type T on the wire: the envelope hash of its full name, "veltraio.Ping" for example.

    There is no table in the protocol; both sides compute the same values from the schema's names. The code holds the
    32-bit pattern in a signed word. Computed when the module is loaded.
*/
template <class T>
struct IdType
{
    static inline const std::int32_t value =
        static_cast<std::int32_t> (envelopeHash (T::default_instance().GetTypeName()));
};

/** Never goes on the wire. */
template <>
struct IdType<AnyMessage>
{
    static constexpr std::int32_t value = 0;
};

/** The marker in hexadecimal. */
inline constexpr char kEnvelopeMarkerText[] = "2101FF";

/** The bytes of a text of hexadecimal digits, in capitals. */
template <std::size_t size>
constexpr std::array<std::uint8_t, size / 2> bytesOfHex (const char (&text)[size])
{
    constexpr auto digit = [] (char c) { return c <= '9' ? c - '0' : c - 'A' + 10; };
    std::array<std::uint8_t, size / 2> bytes {};

    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t> (digit (text[2 * i]) << 4 | digit (text[2 * i + 1]));

    return bytes;
}

inline constexpr auto kDefaultEnvelopeMarker = bytesOfHex (kEnvelopeMarkerText);

/** The fields between marker and body. */
inline constexpr std::size_t kEnvelopeFieldsSize = 4 + 4 + 4;

/** Writes a whole envelope at the start of an empty stream.
    @returns false, with the stream in an undefined state, when the message lacks a required field
*/
bool putEnvelope (juce::MemoryOutputStream& stream, const juce::MemoryBlock& marker, std::int32_t messageId,
                  const google::protobuf::MessageLite& message);

/** A received envelope; the body is borrowed from the block that it was read from. */
struct ReceivedEnvelope
{
    std::int32_t messageId = 0;
    const void* body = nullptr;
    std::size_t bodySize = 0;
};

/** Reads the block that the envelope parser hands up: identifier, checksum, body. Nothing when it is too short for
    that or when the checksum does not fit the body. */
std::optional<ReceivedEnvelope> getEnvelope (const juce::MemoryBlock& block) noexcept;

}
