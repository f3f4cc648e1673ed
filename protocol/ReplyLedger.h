// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace veltraio {

/** Replies that came while no handler waited for one, since the session began. */
struct StrayReplies
{
    std::uint32_t refusals = 0; ///< also those that a later acknowledgement overwrote
    std::uint32_t others = 0;

    bool operator== (const StrayReplies&) const = default;
};

/** Decides when an exchange is over.

    Replies carry no number, so the only thing that ties one to its question is the order. Normally an exchange ends
    with its first reply. That is not safe in these cases, and then the exchange takes longer:

    - An exchange ended by time-out: its reply is owed and may still come. The next exchange is held until the owed
      replies and its own have arrived, and then for a quiet stretch, since a late reply may be said twice as well. The last
      reply counts.
    - Replies arrived that no handler waited for: the receiver says things twice. The commands that follow are held for
      the length of a look, and until as many replies have come as before.
    - It is not known yet whether the receiver says more than one thing: after the first command of each kind, and after
      every query, the next command does not begin before a look is over. Nothing is registered meanwhile, so that
      what arrives is dropped and noted.

    The quiet stretch is judged by the time that this receiver took for its last replies. All times are bounded.

    Times are milliseconds of any steady clock. Safe to call from several threads; with several exchanges at a time,
    which the protocol does not provide for, the decisions are about all of them together.
*/
class ReplyLedger
{
public:
    static constexpr std::int64_t kLook_ms = 10;
    static constexpr std::int64_t kLongestLook_ms = 500; ///< while strays keep arriving
    static constexpr std::int64_t kLeastPatience_ms = 250;
    static constexpr std::int64_t kLongestPatience_ms = 5000;

    /** What an exchange has come to so far. */
    enum class Outcome
    {
        none,
        acknowledged,
        refused,
        answered,         ///< a query, by the message that it asks for
        acknowledgedQuery ///< no answer to a query: what it asks for may be behind it
    };

    /** How long the next exchange must wait before its handler is registered. */
    std::int64_t timeToSettle (std::int64_t now, bool isQuery) const;

    /** Begins a look now, whatever is known: for a quiet stretch, or for the time that is given when that is shorter. */
    void beginLook (std::int64_t now, std::int64_t longest_ms);

    /** A handler is about to be registered. */
    void begin();

    /** A message of the exchange goes out. */
    void sending (std::int32_t messageId, std::int64_t now);

    /** The last one has not gone out. */
    void sendFailed();

    /** A reply has arrived.
        @param isAwaited  a handler is registered for it */
    void arrived (bool isAwaited, bool isRefusal, std::int64_t now);

    /** How much longer an exchange with this outcome is held; 0 when it is over. */
    std::int64_t timeToHold (std::int64_t now, Outcome outcome) const;

    /** The handler has been unregistered.
        @param sawRefusal  a refusal was among its replies */
    void end (std::int64_t now, Outcome outcome, bool sawRefusal);

    StrayReplies strays() const;
    bool hasStraysSinceLastExchange() const;

private:
    /** What is known of the replies to one type of message. */
    struct Kind
    {
        std::int32_t messageId = 0;
        int looks = 0; ///< exchanges of it that a look still has to follow
    };

    struct Exchange
    {
        int sends = 0;
        int replies = 0;
        int early = 0; ///< replies that came before the message had gone out
        std::int64_t firstReply = 0, lastReply = 0;
    };

    Kind& kindOf (std::int32_t messageId);
    bool isCareful (Outcome outcome) const;
    int expectedReplies() const;
    std::int64_t usualPatience() const;
    std::int64_t patience() const;
    void noteSurplus (int repliesToOne);

    mutable std::mutex mutex;
    Exchange current;
    StrayReplies strayReplies, straysAtLastEnd;
    int owed = 0;                ///< replies that may still come to exchanges that ended without
    std::int64_t oldestOwed = 0; ///< when the first of those was asked for
    int wary = 0;                ///< commands still to be held because of a surplus
    int repliesToOne = 1;        ///< that the receiver sends, as it seems
    int repliesSinceSend = 0;
    std::int64_t lastSend = 0;
    std::int64_t slowestReply = 0; ///< of the last ones; fades
    std::int64_t lookBegin = 0, lookEnd = 0;
    bool lastWasRefused = false;
    std::array<Kind, 24> kinds; ///< the protocol has fewer messages that a host sends
    std::size_t kindCount = 0;
    Kind* lastKind = nullptr;
};

}
