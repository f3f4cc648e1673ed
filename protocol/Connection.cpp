// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/Connection.h"

#include <algorithm>
#include <utility>

#include "common/Clock.h"
#include "common/Contain.h"

namespace veltra::ipc {

Connection::Connection (int patience_ms) : handlerPatience_ms (patience_ms) {}

Connection::~Connection()
{
    // Handlers live on their owners' stacks, perhaps on a thread that is just leaving an exchange.
    for (const auto deadline = steadyMilliseconds() + handlerPatience_ms; steadyMilliseconds() < deadline;)
    {
        {
            const juce::ScopedTryLock guard (lock);

            if (guard.isLocked() && handlers.empty())
                break;
        }

        juce::Thread::sleep (1);
    }

    const juce::ScopedLock guard (lock);

    for (auto& [id, registered] : handlers)
        for (auto* handler : registered)
            handler->connection = nullptr;

    for (auto* handler : anyHandlers)
        handler->connection = nullptr;
}

void Connection::addHandler (EventHandlerBase* handler)
{
    const juce::ScopedLock guard (lock);

    if (handler->id == 0)
        anyHandlers.push_back (handler);
    else
        handlers[handler->id].push_back (handler);
}

void Connection::removeHandler (EventHandlerBase* handler)
{
    const juce::ScopedLock guard (lock);

    if (const auto any = std::find (anyHandlers.begin(), anyHandlers.end(), handler); any != anyHandlers.end())
    {
        anyHandlers.erase (any);
        return;
    }

    const auto entry = handlers.find (handler->id);

    if (entry == handlers.end())
        return;

    std::erase (entry->second, handler);

    if (entry->second.empty())
        handlers.erase (entry);
}

bool Connection::isAwaited (std::int32_t id) const
{
    const juce::ScopedLock guard (lock);
    return handlers.find (id) != handlers.end();
}

bool Connection::isRegistered (const EventHandlerBase* handler) const
{
    const auto contains = [handler] (const Handlers& list) {
        return std::find (list.begin(), list.end(), handler) != list.end();
    };

    return contains (anyHandlers) || std::any_of (handlers.begin(), handlers.end(), [&] (const auto& entry) {
               return contains (entry.second);
           });
}

void Connection::call (EventHandlerBase& handler, juce::InputStream& stream, juce::int64 start)
{
    // The handlers include the application's own code. What one throws must not keep the message from the others.
    contain ("A message handler", [&] { handler.handle (stream); });
    stream.setPosition (start);
}

void Connection::dispatch (juce::InputStream& stream, std::int32_t id, std::int32_t subId)
{
    const juce::ScopedLock guard (lock);
    const auto entry = handlers.find (id);

    if (entry == handlers.end())
        return;

    // Copies, because handlers may come and go while the loops run; one that has gone is not called any more.
    const Handlers own = entry->second;
    const Handlers any = anyHandlers;
    const auto start = stream.getPosition();

    for (auto* handler : own)
        if (isRegistered (handler) && handler->subId == subId)
            call (*handler, stream, start);

    for (auto* handler : any)
        if (isRegistered (handler))
            call (*handler, stream, start);
}

void Connection::onData (const juce::MemoryBlock& block)
{
    {
        const juce::ScopedLock guard (lock);

        if (rawCallback)
        {
            rawCallback (block);
        }
        else if (block.getSize() >= 4 + 4)
        {
            juce::MemoryInputStream stream (block, false);
            const auto id = stream.readInt();
            const auto subId = stream.readInt();
            dispatch (stream, id, subId);
        }
    }

    // Not before the lock is free: the first thing that a woken waiter does is to take it.
    handledMessages.give();
}

void Connection::setRawCallback (std::function<void (const juce::MemoryBlock&)> callback)
{
    const juce::ScopedLock guard (lock);
    rawCallback = std::move (callback);
}

void Connection::clearRawCallback() { setRawCallback (nullptr); }

}
