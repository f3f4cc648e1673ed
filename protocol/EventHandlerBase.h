// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include <juce_core/juce_core.h>

namespace veltra::ipc {

class Connection;

/** What all handlers of one object share: the connection that they are registered on. A virtual base, so that an
    object which handles several kinds of message has one connection. */
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

    Connection* connection = nullptr; // borrowed; null while not registered, and when the connection went first
};

/** Somebody who wants the messages of one identifier, or with the identifier 0 every message that anybody on the
    connection wants. It hears of them from the moment that a HandlerRegistration holds it. */
class EventHandlerBase : public virtual EventHandlerConnectionBase
{
public:
    /** Called on the connection's reader thread with the connection's lock held; the stream stands at the body. */
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

    Make it the last member of the complete handler class. It then begins when the object is whole and ends before
    any part of it goes; a registration in the constructor of a base class would let the reader thread call a
    virtual operation of a class that is not there yet. A handler may outlive its connection.

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

}
