// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/ReplyHandlers.h"

#include <chrono>

#include "common/Clock.h"
#include "common/Text.h"

namespace veltraio {

namespace {

constexpr std::chrono::milliseconds poll { 10 };

}

AcknowledgeHandler::AcknowledgeHandler (Dispatcher& dispatcher) : AcknowledgeHandler (dispatcher, Unregistered())
{
    registration.add (dispatcher.getConnection(), *this);
}

AcknowledgeHandler::AcknowledgeHandler (Dispatcher& dispatcher, Unregistered)
    : connection (dispatcher.getConnection()),
      waitForever (! dispatcher.usesTimeouts())
{
}

std::int32_t AcknowledgeHandler::Wait (std::uint32_t timeoutMs)
{
    const auto deadline = veltra::steadyMilliseconds() + timeoutMs;

    for (auto seen = connection.getMessageCount();
         state == ReplyState::pending && (waitForever || veltra::steadyMilliseconds() < deadline);)
        seen = connection.waitForMessage (seen, poll);

    // From here on the caller reads what arrived, so nothing more may arrive.
    if (state != ReplyState::pending)
        registration.reset();

    return state;
}

juce::String AcknowledgeHandler::getErrorText() const
{
    const std::lock_guard guard (errorTextLock);
    return errorText;
}

void AcknowledgeHandler::setState (std::int32_t newState) { state = newState; }

void AcknowledgeHandler::onEvent (const Acknowledge& message)
{
    if (message.has_errormessage())
    {
        const std::lock_guard guard (errorTextLock);
        errorText = veltra::juceText (message.errormessage());
    }

    setState (message.ok() ? ReplyState::acknowledged : ReplyState::refused);
}

}
