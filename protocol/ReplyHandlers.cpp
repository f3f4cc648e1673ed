// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/ReplyHandlers.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "common/Clock.h"
#include "common/GuestProcess.h"
#include "common/Text.h"

namespace veltraio {

using veltra::steadyMilliseconds;

namespace {

constexpr std::int64_t kLongestPoll_ms = 10;

}

AcknowledgeHandler::AcknowledgeHandler (Dispatcher& dispatcher)
    : AcknowledgeHandler (dispatcher, Wanted::acknowledgement)
{
    registration.add (dispatcher.getConnection(), *this);
}

AcknowledgeHandler::AcknowledgeHandler (Dispatcher& dispatcher, Wanted whatFor)
    : connection (dispatcher.getConnection()),
      ledger (dispatcher.getLedger()),
      wanted (whatFor),
      waitForever (! dispatcher.usesTimeouts())
{
    dispatcher.settle (wanted == Wanted::answer);
    ledger->begin();
}

AcknowledgeHandler::~AcknowledgeHandler() { endExchange(); }

std::int32_t AcknowledgeHandler::Wait (std::uint32_t timeoutMs)
{
    const auto deadline = steadyMilliseconds() + timeoutMs;

    for (auto seen = connection.getMessageCount();;)
    {
        const auto now = steadyMilliseconds();
        const bool isPending = state == ReplyState::pending;
        auto left_ms = kLongestPoll_ms;

        if (! isPending)
            left_ms = std::min (left_ms, ledger->timeToHold (now, outcome()));
        else if (! waitForever)
            left_ms = std::min (left_ms, deadline - now);

        if (left_ms <= 0)
        {
            // Not the state of now: a reply of just now has not been held yet.
            if (isPending)
                return ReplyState::pending;

            break;
        }

        if (isPending && veltra::isEnding())
            return ReplyState::pending;

        seen = connection.waitForMessage (seen, std::chrono::milliseconds (left_ms));
    }

    // From here on the caller reads what arrived, so nothing more may arrive.
    endExchange();
    return state;
}

ReplyLedger::Outcome AcknowledgeHandler::outcome() const
{
    using enum ReplyLedger::Outcome;

    switch (state)
    {
        case ReplyState::refused: return refused;
        case ReplyState::acknowledged: return wanted == Wanted::answer ? acknowledgedQuery : acknowledged;
        case ReplyState::answered: return answered;
        default: return none;
    }
}

void AcknowledgeHandler::endExchange()
{
    registration.reset();

    if (! std::exchange (hasEnded, true))
        ledger->end (steadyMilliseconds(), outcome(), sawRefusal);
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

    if (! message.ok())
        sawRefusal = true;

    setState (message.ok() ? ReplyState::acknowledged : ReplyState::refused);
}

}
