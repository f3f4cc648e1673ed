// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <type_traits>

#include <juce_core/juce_core.h>

#include "protocol/Dispatcher.h"
#include "protocol/EventHandler.h"
#include "protocol/veltraio.pb.h"

namespace veltraio {

/** What came in answer to a message. */
namespace ReplyState {

inline constexpr std::int32_t refused = 0;      // Acknowledge with ok false
inline constexpr std::int32_t acknowledged = 1; // Acknowledge with ok true
inline constexpr std::int32_t answered = 2;     // the message that a MessageHandler waits for
inline constexpr std::int32_t pending = 3;      // nothing yet; after a Wait: time ran out

}

/** Waits for the Acknowledge to one command. Lives on the stack for one exchange; see Dispatcher.

    A reply is matched by its type and its order alone; ReplyLedger.h says when that takes more than the first reply. Its
    constructor waits for a moment where the last exchange may not be over. The owner's thread makes it, waits and
    reads; the reader thread delivers.
*/
class AcknowledgeHandler : public EventHandler<Acknowledge>
{
public:
    explicit AcknowledgeHandler (Dispatcher& dispatcher);
    ~AcknowledgeHandler() override;

    /** Waits for a reply, which ends it at once unless more replies may come.

        Replies that arrive before it returns overwrite one another, so the last one counts. A reply that has been
        returned is final: the handler is then off the connection, and its contents change no more. A wait takes at
        most ReplyLedger::kLongestPatience_ms longer than its time.

        @param timeoutMs  ignored when the dispatcher uses no time-outs; a lost reply then blocks for good
        @returns one of ReplyState
    */
    std::int32_t Wait (std::uint32_t timeoutMs);

    /** The device's words, empty when it gave none. */
    juce::String getErrorText() const;

protected:
    /** What a handler waits for. */
    enum class Wanted
    {
        acknowledgement,
        answer
    };

    /** For a class that registers itself, and this part of it, through registration when it is complete. */
    AcknowledgeHandler (Dispatcher& dispatcher, Wanted whatFor);

    /** Publishes what has been stored before it. */
    void setState (std::int32_t newState);

    void onEvent (const Acknowledge& message) override;

private:
    ReplyLedger::Outcome outcome() const;

    /** Takes the handler off the connection and the exchange into the ledger; once. */
    void endExchange();

    mutable std::mutex errorTextLock;
    juce::String errorText;
    veltra::ipc::Connection& connection;
    const std::shared_ptr<ReplyLedger> ledger;
    const Wanted wanted;
    const bool waitForever;
    bool hasEnded = false;
    std::atomic<bool> sawRefusal { false };
    std::atomic<std::int32_t> state { ReplyState::pending };

protected:
    veltra::ipc::HandlerRegistration registration; // last, see there
};

/** Waits for a message of type T, or for the Acknowledge that refuses it. */
template <class T>
class MessageHandler final : public EventHandler<T>,
                             public AcknowledgeHandler
{
    static_assert (! std::is_same_v<T, Acknowledge>, "an AcknowledgeHandler waits for those");

public:
    /** @param target  where the message is copied; null keeps it in the handler. It must outlive the handler. */
    explicit MessageHandler (Dispatcher& dispatcher, T* target = nullptr)
        : AcknowledgeHandler (dispatcher, Wanted::answer),
          destination (target)
    {
        registration.add (dispatcher.getConnection(), static_cast<veltraio::EventHandler<T>&> (*this));
        registration.add (dispatcher.getConnection(), static_cast<veltraio::EventHandler<Acknowledge>&> (*this));
    }

    ~MessageHandler() override { registration.reset(); }

    /** The message, once Wait has returned ReplyState::answered. */
    const T& message() const noexcept { return destination != nullptr ? *destination : received; }

private:
    using AcknowledgeHandler::onEvent;

    void onEvent (const T& message) override
    {
        (destination != nullptr ? *destination : received) = message;
        setState (ReplyState::answered);
    }

    T received;
    T* const destination;
};

}
