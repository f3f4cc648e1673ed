// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/ReplyLedger.h"

#include <algorithm>
#include <utility>

namespace veltraio {

namespace {

constexpr int kMostOwed = 16;
constexpr int kMostRepliesToOne = 4;
constexpr int kExchangesToBeWary = 64;

}

std::int64_t ReplyLedger::timeToSettle (std::int64_t now, bool isQuery) const
{
    const std::lock_guard guard (mutex);

    // A query is not misled by a late acknowledgement, only by a late refusal.
    if (isQuery && ! lastWasRefused)
        return 0;

    return std::max<std::int64_t> (lookEnd - now, 0);
}

void ReplyLedger::beginLook (std::int64_t now, std::int64_t longest_ms)
{
    const std::lock_guard guard (mutex);
    lookBegin = now;
    lookEnd = now + std::min ({ patience(), kLongestLook_ms, longest_ms });
}

void ReplyLedger::begin()
{
    const std::lock_guard guard (mutex);
    current = {};
}

void ReplyLedger::sending (std::int32_t messageId, std::int64_t now)
{
    const std::lock_guard guard (mutex);

    if (current.sends++ == 0)
        current.early = current.replies;

    lastKind = &kindOf (messageId);
    lastSend = now;
    repliesSinceSend = 0;
}

void ReplyLedger::sendFailed()
{
    const std::lock_guard guard (mutex);
    current.sends = std::max (current.sends - 1, 0);
}

void ReplyLedger::arrived (bool isAwaited, bool isRefusal, std::int64_t now)
{
    const std::lock_guard guard (mutex);
    ++repliesSinceSend;

    if (isAwaited)
    {
        if (current.replies++ == 0)
            current.firstReply = now;

        current.lastReply = now;
        return;
    }

    if (owed > 0)
    {
        --owed;
    }
    else
    {
        ++(isRefusal ? strayReplies.refusals : strayReplies.others);
        noteSurplus (std::max (repliesSinceSend, 2));
    }

    if (now >= lookEnd)
        lookBegin = now;

    lookEnd = std::max (lookEnd, std::min (now + kLook_ms, lookBegin + kLongestLook_ms));
}

std::int64_t ReplyLedger::timeToHold (std::int64_t now, Outcome outcome) const
{
    const std::lock_guard guard (mutex);

    if (current.sends == 0 || current.replies == 0 || ! isCareful (outcome))
        return 0;

    auto end = current.firstReply + kLook_ms;

    if (outcome == Outcome::acknowledgedQuery || current.replies < expectedReplies())
        end = std::max (end, current.lastReply + patience());
    else if (owed > 0) // one of them may have been said twice
        end = std::max (end, current.lastReply + usualPatience());

    return std::max<std::int64_t> (std::min (end, current.firstReply + kLook_ms + kLongestPatience_ms) - now, 0);
}

void ReplyLedger::end (std::int64_t now, Outcome outcome, bool sawRefusal)
{
    const std::lock_guard guard (mutex);
    const bool wasHeld = isCareful (outcome);
    const int expected = expectedReplies();
    const auto ended = std::exchange (current, {});

    if (ended.sends == 0)
        return;

    if (ended.replies == 0)
    {
        if (owed == 0)
            oldestOwed = lastSend;

        owed = std::min (owed + ended.sends, kMostOwed);
        return;
    }

    const bool isClean = owed == 0 && ended.early == 0;

    if (isClean)
        slowestReply = std::max (ended.firstReply - lastSend, slowestReply - slowestReply / 8);

    // The refusal belongs to an earlier exchange, which was reported as a success.
    if (isClean && sawRefusal && outcome == Outcome::acknowledged)
        ++strayReplies.refusals;

    if (ended.replies > expected)
        noteSurplus (isClean ? ended.replies : repliesToOne + 1);
    else if (wary > 0 && --wary == 0)
        repliesToOne = 1;
    else if (wasHeld && isClean)
        repliesToOne = ended.replies;

    straysAtLastEnd = strayReplies;
    owed = 0; // has come, or will not
    lastWasRefused = outcome == Outcome::refused;
    const bool isQuery = outcome == Outcome::answered || outcome == Outcome::acknowledgedQuery;

    if (isQuery || (lastKind != nullptr && lastKind->looks > 0 && ! wasHeld))
    {
        lookBegin = now;
        lookEnd = ended.lastReply + kLook_ms;
    }

    if (lastKind != nullptr && lastKind->looks > 0)
        --lastKind->looks;
}

StrayReplies ReplyLedger::strays() const
{
    const std::lock_guard guard (mutex);
    return strayReplies;
}

bool ReplyLedger::hasStraysSinceLastExchange() const
{
    const std::lock_guard guard (mutex);
    return strayReplies != straysAtLastEnd;
}

ReplyLedger::Kind& ReplyLedger::kindOf (std::int32_t messageId)
{
    const auto known = std::find_if (kinds.begin(), kinds.begin() + static_cast<std::ptrdiff_t> (kindCount),
                                     [=] (const Kind& kind) { return kind.messageId == messageId; });

    if (known != kinds.begin() + static_cast<std::ptrdiff_t> (kindCount))
        return *known;

    auto& kind = kinds[std::min (kindCount, kinds.size() - 1)];
    kind = { messageId, 1 };
    kindCount = std::min (kindCount + 1, kinds.size());
    return kind;
}

bool ReplyLedger::isCareful (Outcome outcome) const
{
    return owed > 0 || current.early > 0 || outcome == Outcome::acknowledgedQuery
           || (wary > 0 && outcome != Outcome::answered);
}

int ReplyLedger::expectedReplies() const { return current.early + (owed + 1) * repliesToOne; }

/** As long as the receiver has been needing for its replies, with a margin. */
std::int64_t ReplyLedger::usualPatience() const { return std::max (4 * slowestReply, kLeastPatience_ms); }

/** A reply that itself came late shows that the receiver was held up, and is perhaps the owed one: then its own time is
    the measure. */
std::int64_t ReplyLedger::patience() const
{
    const auto usual = usualPatience();
    const bool isLate = owed > 0 && current.firstReply - lastSend > usual;
    return std::min (isLate ? std::max (usual, current.firstReply - oldestOwed) : usual, kLongestPatience_ms);
}

void ReplyLedger::noteSurplus (int repliesOfOne)
{
    repliesToOne = std::clamp (repliesOfOne, repliesToOne, kMostRepliesToOne);
    wary = kExchangesToBeWary;

    if (lastKind != nullptr)
        lastKind->looks = kExchangesToBeWary;
}

}
