// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include <juce_core/juce_core.h>

#include "protocol/EventHandler.h"
#include "protocol/MessageSignal.h"

namespace veltra::ipc {

/** Where a datagram goes; stream connections ignore it. */
struct Destination
{
    juce::String host;
    int port = 0;
};

/** A message connection with a registry of handlers. Derived classes transport the bytes.

    Threads: the derived class's reader thread calls onData; handlers come and go on any thread.
*/
class Connection
{
public:
    /** How long the destructor waits for handlers that are still registered. */
    static constexpr int kHandlerPatience_ms = 5000;

    explicit Connection (int patience_ms = kHandlerPatience_ms);

    /** Waits a limited time until no handler is registered; those that are left then are unregistered. A derived
        class stops its reader thread before its own destructor ends. */
    virtual ~Connection();

    virtual bool isConnected() = 0;
    virtual juce::String getName() = 0;

    /** Sends bytes as they are. @returns how many the transport took, or -1 */
    virtual int write (const void* data, int size) = 0;

    /** Takes a received block: to the raw callback when one is set, otherwise identifier and sub-identifier (32 bits
        each, little-endian) are read from its start and the rest is dispatched. */
    virtual void onData (const juce::MemoryBlock& block);

    /** Bytes that must be reserved at the start of a stream that send() is given. */
    virtual int getHeaderSize() = 0;

    /** Fills in the reserved header and sends the whole stream. @returns whether all of it went out */
    virtual bool send (juce::MemoryOutputStream& stream, const Destination& destination = {}) = 0;

    Connection (const Connection&) = delete;
    Connection& operator= (const Connection&) = delete;

    void addHandler (EventHandlerBase* handler);
    void removeHandler (EventHandlerBase* handler);

    /** Whether a handler is registered for the messages of an identifier. */
    bool isAwaited (std::int32_t id) const;

    /** Hands the stream, from its present position, to each handler of the identifier and sub-identifier, and then to
        the any-message handlers. A message without a handler of its identifier is dropped, also for those. An
        exception out of a handler is logged, and the other handlers get the message. */
    void dispatch (juce::InputStream& stream, std::int32_t id, std::int32_t subId);

    /** Takes the received blocks instead of the registry; called on the reader thread with the lock held. */
    void setRawCallback (std::function<void (const juce::MemoryBlock&)> callback);
    void clearRawCallback();

    /** How many messages onData has handled. To wait for something that a handler does without missing it, read the
        count, look, and wait for another count. */
    std::uint32_t getMessageCount() const { return handledMessages.getCount(); }

    /** @returns the count when it differs from the one seen, when the time is over, or sometimes earlier */
    std::uint32_t waitForMessage (std::uint32_t seen, std::chrono::milliseconds timeout)
    {
        return handledMessages.wait (seen, timeout);
    }

private:
    using Handlers = std::vector<EventHandlerBase*>;

    bool isRegistered (const EventHandlerBase* handler) const;
    void call (EventHandlerBase& handler, juce::InputStream& stream, juce::int64 start);

    juce::CriticalSection lock; // recursive; held while handlers run, so that they may add and remove handlers
    std::map<std::int32_t, Handlers> handlers;
    Handlers anyHandlers;
    std::function<void (const juce::MemoryBlock&)> rawCallback;
    const int handlerPatience_ms;
    MessageSignal handledMessages;
};

}
