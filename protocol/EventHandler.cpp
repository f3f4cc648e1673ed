// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/EventHandler.h"

#include "protocol/Connection.h"

namespace veltra::ipc {

// Delegates, so that the destructor unregisters the first handlers when there is no memory for the next.
HandlerRegistration::HandlerRegistration (Connection& connection,
                                          std::initializer_list<EventHandlerBase*> handlersToAdd)
    : HandlerRegistration()
{
    for (auto* handler : handlersToAdd)
        add (connection, *handler);
}

HandlerRegistration::~HandlerRegistration() { reset(); }

void HandlerRegistration::add (Connection& connection, EventHandlerBase& handler)
{
    handlers.push_back (&handler);
    handler.connection = &connection;
    connection.addHandler (&handler);
}

void HandlerRegistration::reset() noexcept
{
    for (auto* handler : handlers)
        if (auto* connection = handler->connection)
            connection->removeHandler (handler);

    handlers.clear();
}

}
