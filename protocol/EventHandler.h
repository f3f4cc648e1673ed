// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <istream>

#include <juce_core/juce_core.h>

#include "protocol/Envelope.h"
#include "protocol/EventHandlerBase.h"
#include "protocol/StreamAdaptors.h"

namespace veltra::ipc {

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
        // The bodies of envelopes lie in memory, where a standard stream would cost ten times the parsing.
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
