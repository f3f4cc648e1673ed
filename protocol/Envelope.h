#pragma once

/** @file
    The bytes round a message; all integers are big-endian, there is no padding:

        marker     3   0x21 0x01 0xFF (configurable, so that all that follows moves with its length)
        length     4   bytes of the body
        messageId  4   IdType<T>::value
        checksum   4   envelope hash of the body
        body       length bytes, the message's protobuf serialisation
*/

#include <cstddef>
#include <cstdint>
#include <optional>

#include <google/protobuf/message_lite.h>
#include <juce_core/juce_core.h>

namespace veltraio {

/** What stands between marker and body. */
inline constexpr std::size_t envelopeFieldsSize = 4 + 4 + 4;

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
