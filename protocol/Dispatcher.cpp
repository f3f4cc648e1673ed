// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/Dispatcher.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "common/Clock.h"
#include "protocol/Envelope.h"
#include "protocol/EventHandler.h"

namespace veltraio {

using veltra::steadyMilliseconds;

namespace {

template <class... Messages>
bool isOneOf (std::int32_t messageId)
{
    return ((messageId == IdType<Messages>::value) || ...);
}

/** A message that answers one of ours, unlike Pong and AudioData. */
bool isReply (std::int32_t messageId)
{
    return isOneOf<Acknowledge, ActiveFilterSlot, ChannelAttenuation, FilteringState, ProtocolInfo, StimulusInfo,
                   StimulusState, TopologyInfo, Unit, Volume> (messageId);
}

bool isRefusal (const ReceivedEnvelope& envelope)
{
    if (envelope.messageId != IdType<Acknowledge>::value)
        return false;

    Acknowledge message; // what can be read of it counts, as for a handler
    static_cast<void> (message.ParsePartialFromArray (envelope.body, static_cast<int> (envelope.bodySize)));
    return ! message.ok();
}

}

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

    // Before the write, because a reply may come before it returns.
    if (messageId != IdType<Ping>::value)
        ledger->sending (messageId, steadyMilliseconds());

    if (connection->write (stream.getData(), total) != total)
    {
        if (messageId != IdType<Ping>::value)
            ledger->sendFailed();

        return -1;
    }

    if (clearOnSuccess != nullptr)
        clearOnSuccess->clear();

    return 0;
}

void Dispatcher::settle (bool isQuery)
{
    const auto deadline = steadyMilliseconds() + ReplyLedger::kLongestLook_ms;
    auto seen = connection->getMessageCount();

    for (auto now = steadyMilliseconds(); now < deadline; now = steadyMilliseconds())
    {
        const auto left = std::min (ledger->timeToSettle (now, isQuery), deadline - now);

        if (left <= 0)
            break;

        seen = connection->waitForMessage (seen, std::chrono::milliseconds (left));
    }
}

StrayReplies Dispatcher::lookForStrays (std::int64_t longest_ms)
{
    ledger->beginLook (steadyMilliseconds(), longest_ms);
    settle();
    return ledger->strays();
}

void Dispatcher::onData (const juce::MemoryBlock& block)
{
    if (const auto envelope = getEnvelope (block))
    {
        if (isReply (envelope->messageId))
        {
            // Before the handlers, so that a waiter who sees the reply finds it in the ledger.
            const bool isAwaited = connection->isAwaited (envelope->messageId);
            ledger->arrived (isAwaited, ! isAwaited && isRefusal (*envelope), steadyMilliseconds());
        }

        juce::MemoryInputStream body (envelope->body, envelope->bodySize, false);
        connection->dispatch (body, envelope->messageId, 0);
    }
}

}
