// SPDX-License-Identifier: GPL-3.0-or-later

#include "protocol/ReplyLedger.h"
#include "tests/support/Testing.h"

namespace {

using veltraio::ReplyLedger;
using enum ReplyLedger::Outcome;

/** A ledger on a clock that the test sets. */
struct Ledger : ReplyLedger
{
    void send (std::int64_t time, std::int32_t messageId = 1)
    {
        begin();
        sending (messageId, time);
    }

    void reply (std::int64_t time) { arrived (true, false, time); }
    void stray (std::int64_t time, bool isRefusal = false) { arrived (false, isRefusal, time); }

    /** A whole exchange that nothing holds. */
    void exchange (std::int64_t time, std::int64_t reply_ms = 1)
    {
        send (time);
        reply (time + reply_ms);
        EXPECT_EQ (0, timeToHold (time + reply_ms, acknowledged));
        end (time + reply_ms, acknowledged, false);
    }

    void timeOut (std::int64_t time)
    {
        send (time);
        end (time + 100, none, false);
    }
};

TEST (ReplyLedger, AfterATimeOutAnExchangeIsHeldUntilTheOwedReplyOrAQuietStretch)
{
    Ledger ledger;
    ledger.timeOut (0);
    ledger.timeOut (200);
    ledger.send (400);
    EXPECT_EQ (0, ledger.timeToHold (401, none)) << "not before a reply";
    ledger.reply (402);
    ledger.reply (403);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToHold (403, acknowledged)) << "one more may come";
    ledger.reply (404);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToHold (404, acknowledged)) << "one may be said twice";
    ledger.end (654, acknowledged, false);
    ledger.exchange (1000, 100);

    // A quiet stretch is four times as long as the slowest reply, or as late as the late one is itself.
    ledger.timeOut (2000);
    ledger.send (2500);
    ledger.reply (2510);
    EXPECT_EQ (4 * 100, ledger.timeToHold (2510, acknowledged));
    ledger.end (2910, acknowledged, false);
    ledger.exchange (3000);

    ledger.timeOut (4000);
    ledger.send (4500);
    ledger.reply (5000);
    EXPECT_EQ (5000 - 4000, ledger.timeToHold (5000, acknowledged));

    ledger.timeOut (10000);
    ledger.send (90000);
    ledger.reply (91000);
    EXPECT_EQ (ReplyLedger::kLongestPatience_ms, ledger.timeToHold (91000, acknowledged));
    ledger.end (96000, acknowledged, false);

    ledger.timeOut (100000);
    ledger.stray (100150);
    EXPECT_EQ (veltraio::StrayReplies(), ledger.strays()) << "the owed one, which came between two exchanges";
    EXPECT_EQ (ReplyLedger::kLook_ms, ledger.timeToSettle (100150, false)) << "and may be said twice";
    ledger.exchange (100200);
}

TEST (ReplyLedger, ALateReplyMayBeSaidTwiceAndALookIsAsLongAsItsCallerWants)
{
    Ledger ledger;
    ledger.beginLook (0, 2);
    EXPECT_EQ (2, ledger.timeToSettle (0, false));
    ledger.beginLook (100, ReplyLedger::kLongestLook_ms);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToSettle (100, false));

    // The late reply and its double, then the exchange's own.
    ledger.timeOut (1000);
    ledger.send (1500);

    for (const int time : { 1600, 1603, 1620 })
        ledger.reply (time);

    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToHold (1620, acknowledged));
    ledger.end (1870, acknowledged, false);
    ledger.send (2000);
    ledger.reply (2001);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToHold (2001, acknowledged)) << "expects everything twice";
}

TEST (ReplyLedger, AfterAStrayReplyCommandsAreHeldForALook)
{
    Ledger ledger;
    ledger.exchange (0);
    EXPECT_EQ (ReplyLedger::kLook_ms, ledger.timeToSettle (1, false)) << "the first of its kind";
    EXPECT_EQ (0, ledger.timeToSettle (1, true)) << "a query is not misled";
    ledger.exchange (100);
    EXPECT_EQ (0, ledger.timeToSettle (101, false));

    ledger.stray (105, true);
    EXPECT_EQ ((veltraio::StrayReplies { 1, 0 }), ledger.strays());
    EXPECT_EQ (ReplyLedger::kLook_ms, ledger.timeToSettle (105, false));

    // It is expected to say everything twice, until it does not.
    ledger.send (200);
    ledger.reply (201);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToHold (201, acknowledged));
    EXPECT_EQ (0, ledger.timeToHold (201, answered)) << "there is no doubt about an answer";
    ledger.end (451, acknowledged, false);

    for (int time = 1000, left = 63; left > 0; time += 100, --left)
    {
        ledger.send (time);
        ledger.reply (time + 1);
        ASSERT_EQ (ReplyLedger::kLook_ms, ledger.timeToHold (time + 1, acknowledged)) << left;
        ledger.end (time + 11, acknowledged, false);
    }

    ledger.exchange (10000);

    // A refusal that an acknowledgement overwrote, with nothing owed, belongs to no exchange.
    ledger.send (11000);
    ledger.reply (11000);
    ledger.reply (11000);
    ledger.end (11000, acknowledged, true);
    EXPECT_EQ ((veltraio::StrayReplies { 2, 0 }), ledger.strays());
}

TEST (ReplyLedger, AQueryThatIsAcknowledgedWaitsOnForItsAnswer)
{
    Ledger ledger;
    ledger.send (0);
    ledger.reply (1);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms, ledger.timeToHold (1, acknowledgedQuery));
    ledger.reply (5);
    EXPECT_EQ (0, ledger.timeToHold (5, answered));
    ledger.end (5, answered, false);
    EXPECT_EQ (ReplyLedger::kLook_ms, ledger.timeToSettle (5, false));

    ledger.begin();
    ledger.reply (100); // of the exchange before, between the registration and the sending
    ledger.sending (2, 101);
    EXPECT_EQ (ReplyLedger::kLeastPatience_ms - 1, ledger.timeToHold (101, acknowledged));
}

}
