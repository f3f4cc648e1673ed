// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <initializer_list>
#include <istream>
#include <vector>

#include <juce_core/juce_core.h>

#include "protocol/Envelope.h"
#include "protocol/StreamAdaptors.h"

namespace veltra::ipc {

class Connection;

/** The connection that all handlers of one object are registered on. A virtual base, so that an object that handles
    several kinds of message has one connection. */
class EventHandlerConnectionBase
{
public:
    virtual ~EventHandlerConnectionBase() = default;

    EventHandlerConnectionBase (const EventHandlerConnectionBase&) = delete;
    EventHandlerConnectionBase& operator= (const EventHandlerConnectionBase&) = delete;

protected:
    EventHandlerConnectionBase() = default;

private:
    friend class Connection;
    friend class HandlerRegistration;

    Connection* connection =
        nullptr; // borrowed; null while not registered, and when the connection was destroyed first
};

/** Receives the messages of one identifier, or with the identifier 0 every message for which the connection has a
    handler, while a HandlerRegistration holds it. */
class EventHandlerBase : public virtual EventHandlerConnectionBase
{
public:
    /** Called on the connection's reader thread with the connection's lock held; the stream is positioned at the body. */
    virtual void handle (juce::InputStream& stream) = 0;

protected:
    EventHandlerBase (std::int32_t messageId, std::int32_t messageSubId) noexcept : id (messageId), subId (messageSubId)
    {
    }

private:
    friend class Connection;

    const std::int32_t id;
    const std::int32_t subId;
};

/** Keeps handlers registered on a connection for as long as it lives.

    Make it the last member of the complete handler class. It then begins when the object is complete and ends before
    any part of it is destroyed; a registration in the constructor of a base class would let the reader thread call a
    virtual operation of a class that is not constructed yet. A handler may outlive its connection.

    Made and destroyed by the handlers' owner; waits for the connection's lock, so a handler that is running ends
    before it is unregistered, except where a handler unregisters itself.
*/
class HandlerRegistration
{
public:
    HandlerRegistration() = default;
    HandlerRegistration (Connection& connection, std::initializer_list<EventHandlerBase*> handlers);
    ~HandlerRegistration();

    HandlerRegistration (const HandlerRegistration&) = delete;
    HandlerRegistration& operator= (const HandlerRegistration&) = delete;

    void add (Connection& connection, EventHandlerBase& handler);

    /** Unregisters at once. */
    void reset() noexcept;

private:
    std::vector<EventHandlerBase*> handlers; // borrowed from the object that this is a member of
};

/** A handler of messages of type T, whose identifier is Id<T>::value and which Deserializer<T> reads. */
template <class T, template <class> class Id, template <class> class Deserializer>
class EventHandler : public EventHandlerBase
{
public:
    EventHandler() : EventHandlerBase (Id<T>::value, 0) {}

    void handle (juce::InputStream& stream) override
    {
        T message;
        Deserializer<T>::read (stream, message);
        onEvent (message);
    }

    /** Called on the connection's reader thread with the connection's lock held. The message is gone afterwards. */
    virtual void onEvent (const T& message) = 0;
};

}

namespace veltraio {

/** Turns the rest of a stream into a message. A body that is cut short or lacks a required field gives a message with
    what could be read of it, silently. */
template <class T>
struct Deserializer
{
    static void read (juce::InputStream& stream, T& message)
    {
        // The bodies of envelopes are in memory; a standard stream would take ten times as long as the parsing.
        if (const auto* memory = dynamic_cast<juce::MemoryInputStream*> (&stream))
        {
            const auto* const data = static_cast<const char*> (memory->getData()) + stream.getPosition();
            static_cast<void> (message.ParsePartialFromArray (data, static_cast<int> (stream.getNumBytesRemaining())));
            return;
        }

        veltra::ipc::InputStreamBuffer<char> buffer (stream);
        std::istream input (&buffer);
        static_cast<void> (message.ParsePartialFromIstream (&input));
    }
};

/** There is nothing to read, and the stream stays where it is. */
template <>
struct Deserializer<AnyMessage>
{
    static void read (juce::InputStream&, AnyMessage&) {}
};

/** A handler of one message of the device protocol, or of AnyMessage. */
template <class T>
using EventHandler = veltra::ipc::EventHandler<T, IdType, Deserializer>;

}
