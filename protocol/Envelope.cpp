// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/Envelope.h"

#include <limits>

#include "common/BigEndian.h"

namespace veltraio {

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
