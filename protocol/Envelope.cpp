#include "protocol/Envelope.h"

#include <ostream>

#include "protocol/EnvelopeHash.h"
#include "protocol/StreamAdaptors.h"

namespace veltraio {

bool putEnvelope (juce::MemoryOutputStream& stream, const juce::MemoryBlock& marker, std::int32_t messageId,
                  const google::protobuf::MessageLite& message)
{
    // Protobuf throws when it is asked to serialise a message that is not complete.
    if (! message.IsInitialized())
        return false;

    const auto headerSize = marker.getSize() + envelopeFieldsSize;
    stream.writeRepeatedByte (0, headerSize);

    {
        veltra::ipc::OutputStreamBuffer<char> buffer (stream);
        std::ostream output (&buffer);

        if (! message.SerializeToOstream (&output) || ! output.flush())
            return false;
    }

    const auto bodySize = stream.getDataSize() - headerSize;
    const auto* body = static_cast<const char*> (stream.getData()) + headerSize;
    const auto checksum = envelopeHash (body, bodySize);

    stream.setPosition (0);
    stream.write (marker.getData(), marker.getSize());
    stream.writeIntBigEndian (static_cast<int> (bodySize));
    stream.writeIntBigEndian (messageId);
    stream.writeIntBigEndian (static_cast<int> (checksum));
    return true;
}

std::optional<ReceivedEnvelope> getEnvelope (const juce::MemoryBlock& block) noexcept
{
    if (block.getSize() < 4 + 4)
        return std::nullopt;

    const auto* bytes = static_cast<const char*> (block.getData());
    const ReceivedEnvelope envelope { static_cast<std::int32_t> (juce::ByteOrder::bigEndianInt (bytes)),
                                      bytes + 4 + 4, block.getSize() - 4 - 4 };

    if (envelopeHash (envelope.body, envelope.bodySize) != juce::ByteOrder::bigEndianInt (bytes + 4))
        return std::nullopt;

    return envelope;
}

}
