// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/Dispatcher.h"

#include <utility>

#include "protocol/Envelope.h"

namespace veltraio {

Dispatcher::Dispatcher (std::unique_ptr<veltra::ipc::Connection> connectionToOwn, const juce::String& markerText,
                        bool shouldUseTimeouts)
    : useTimeouts (shouldUseTimeouts),
      connection (std::move (connectionToOwn))
{
    frameMarker.loadFromHexString (markerText);
    connection->setRawCallback ([this] (const juce::MemoryBlock& block) { onData (block); });
}

Dispatcher::~Dispatcher()
{
    // Waits for a handler that is running, since the callback must not go while it is in use.
    connection->clearRawCallback();
}

const juce::MemoryBlock& Dispatcher::getMarkerData() const { return frameMarker; }

std::int32_t Dispatcher::sendMessage (const google::protobuf::MessageLite& message, std::int32_t messageId,
                                      ByteVector* clearOnSuccess)
{
    juce::MemoryOutputStream stream (256);

    if (! putEnvelope (stream, getMarkerData(), messageId, message))
        return -1;

    const auto total = static_cast<std::int32_t> (stream.getDataSize());

    if (const auto limit = messageLimit.load(); limit > 0 && total > limit)
        return total - limit;

    if (connection->write (stream.getData(), total) != total)
        return -1;

    if (clearOnSuccess != nullptr)
        clearOnSuccess->clear();

    return 0;
}

void Dispatcher::onData (const juce::MemoryBlock& block)
{
    if (const auto envelope = getEnvelope (block))
    {
        juce::MemoryInputStream body (envelope->body, envelope->bodySize, false);
        connection->dispatch (body, envelope->messageId, 0);
    }
}

}
