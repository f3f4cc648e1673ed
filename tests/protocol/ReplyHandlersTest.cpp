// SPDX-License-Identifier: GPL-3.0-or-later
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/Clock.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"
#include "tests/support/Envelope.h"
#include "tests/support/LocalConnection.h"

namespace {

using namespace veltraio;
using veltra::test::envelopeOf;

struct Session
{
    explicit Session (bool useTimeouts = true) : Session (std::make_unique<LocalConnection>(), useTimeouts) {}

    /** What the parser would hand up for a message of this name. */
    void receive (const std::string& messageName, const std::string& body)
    {
        connection.receive (envelopeOf (messageName, body).substr (3 + 4));
    }

    void acknowledge() { receive ("veltraio.Acknowledge", { 0x08, 0x01 }); }
    void refuse (const std::string& text)
    {
        receive ("veltraio.Acknowledge", std::string { 0x08, 0x00, 0x12, static_cast<char> (text.size()) } + text);
    }
    void activeSlot() { receive ("veltraio.ActiveFilterSlot", { 0x08, 0x00, 0x10, 0x03 }); }

    LocalConnection& connection;
    Dispatcher dispatcher;

private:
    Session (std::unique_ptr<LocalConnection> local, bool useTimeouts)
        : connection (*local),
          dispatcher (std::move (local), kEnvelopeMarkerText, useTimeouts)
    {
    }
};

Volume someVolume()
{
    Volume volume;
    volume.set_deviceindex (0);
    volume.set_volume (35.0f);
    return volume;
}

TEST (Dispatcher, SendsOneEnvelopeAWriteWithinTheMessageLimit)
{
    Session session;
    ByteVector bytes (10);
    EXPECT_EQ (-1, session.dispatcher.Send (Volume(), &bytes)) << "incomplete";
    EXPECT_TRUE (session.connection.written.empty());
    session.connection.takesAll = false;
    EXPECT_EQ (-1, session.dispatcher.Send (someVolume(), &bytes));
    session.connection.refuses = true;
    EXPECT_EQ (-1, session.dispatcher.Send (someVolume(), &bytes));
    EXPECT_EQ (10u, bytes.size()) << "emptied only when the message went out";

    session.connection.refuses = false;
    session.connection.takesAll = true;
    EXPECT_EQ (0, session.dispatcher.Send (someVolume(), &bytes));
    EXPECT_TRUE (bytes.empty());
    const auto envelope = envelopeOf ("veltraio.Volume", { 0x08, 0x00, 0x15, 0x00, 0x00, 0x0c, 0x42 });
    EXPECT_EQ (envelope, session.connection.written.back());

    const auto size = static_cast<int> (envelope.size()); // the limit counts the whole envelope

    for (const auto& [limit, result] : { std::pair (size, 0), { size - 1, 1 }, { 1, size - 1 }, { 0, 0 }, { -1, 0 } })
    {
        const auto before = session.connection.written.size();
        session.dispatcher.setMessageLimit (limit);
        EXPECT_EQ (result, session.dispatcher.Send (someVolume()));
        EXPECT_EQ (before + (result == 0 ? 1 : 0), session.connection.written.size());
    }
}

TEST (AcknowledgeHandler, TheReplyAndItsTextAreWhatTheDeviceSaid)
{
    Session session;
    const auto replyTo = [&] (const std::function<void()>& answer) {
        AcknowledgeHandler handler (session.dispatcher);
        EXPECT_EQ (ReplyState::pending, handler.Wait (0));
        answer();
        return std::pair (handler.Wait (0), handler.getErrorText());
    };

    EXPECT_EQ (std::pair (ReplyState::acknowledged, juce::String()), replyTo ([&] { session.acknowledge(); }));
    EXPECT_EQ (std::pair (ReplyState::refused, juce::String (juce::CharPointer_UTF8 ("Slot \xc3\xa4 is full"))),
               replyTo ([&] { session.refuse ("Slot \xc3\xa4 is full"); }));
    EXPECT_EQ (std::pair (ReplyState::refused, juce::String()),
               replyTo ([&] { session.receive ("veltraio.Acknowledge", ""); }));

    // A text that ends inside a character would be read past its end.
    EXPECT_EQ (std::pair (ReplyState::refused, juce::String ("bad ?")), replyTo ([&] { session.refuse ("bad \xf0"); }));
}

TEST (MessageHandler, TheLastReplyBeforeTheWaitCountsAndNothingChangesAfterIt)
{
    Session session;
    MessageHandler<ActiveFilterSlot> handler (session.dispatcher);

    session.activeSlot();
    session.acknowledge();
    session.refuse ("no");
    EXPECT_EQ (ReplyState::refused, handler.Wait (0));
    session.activeSlot();
    EXPECT_EQ (ReplyState::refused, handler.Wait (0));

    ActiveFilterSlot target;
    MessageHandler<ActiveFilterSlot> next (session.dispatcher), another (session.dispatcher, &target);
    session.acknowledge();
    session.activeSlot();
    EXPECT_EQ (ReplyState::answered, next.Wait (0));
    EXPECT_EQ (3u, next.message().slotindex());
    EXPECT_EQ (ReplyState::answered, another.Wait (0)) << "two handlers of one message both get it";
    EXPECT_EQ (3u, target.slotindex());
}

TEST (MessageHandler, ATruncatedOrIncompleteMessageArrivesSilentlyWithWhatCouldBeRead)
{
    testing::internal::CaptureStderr();

    for (const std::string body : { "\x08\x05", "\x08\x05\x10", "\x08\x05\x10\xff" })
    {
        Session session;
        MessageHandler<ActiveFilterSlot> handler (session.dispatcher);
        session.receive ("veltraio.ActiveFilterSlot", body);
        EXPECT_EQ (ReplyState::answered, handler.Wait (0));
        EXPECT_EQ (5u, handler.message().deviceindex());
    }

    EXPECT_EQ ("", testing::internal::GetCapturedStderr());
}

TEST (AcknowledgeHandler, AWaitLastsItsTimeAndEndsWithTheReply)
{
    Session session;
    const auto start = veltra::steadyMilliseconds();
    AcknowledgeHandler handler (session.dispatcher);
    EXPECT_EQ (ReplyState::pending, handler.Wait (50));
    EXPECT_GE (veltra::steadyMilliseconds() - start, 50);

    std::jthread device ([&] {
        std::this_thread::sleep_for (std::chrono::milliseconds (30));
        session.acknowledge();
    });
    EXPECT_EQ (ReplyState::acknowledged, handler.Wait (60000));
    EXPECT_LT (veltra::steadyMilliseconds() - start, 30000);
}

/** Says to each message what it has been given for it, each reply so long after the message. */
class Receiver
{
public:
    struct Reply
    {
        int delay_ms;
        void (*say) (Session&);
    };

    explicit Receiver (std::vector<std::vector<Reply>> replies) : script (std::move (replies))
    {
        session.connection.onWrite = [this] {
            const std::lock_guard guard (mutex);

            for (const auto& reply : script.at (messages++))
                due.emplace (veltra::steadyMilliseconds() + reply.delay_ms, reply.say);
        };
    }

    Session session;

private:
    void run (const std::stop_token& stop)
    {
        while (! stop.stop_requested())
        {
            void (*say) (Session&) = nullptr;

            {
                const std::lock_guard guard (mutex);

                if (! due.empty() && due.begin()->first <= veltra::steadyMilliseconds())
                    say = due.extract (due.begin()).mapped();
            }

            if (say != nullptr)
                say (session);
            else
                std::this_thread::sleep_for (std::chrono::microseconds (200));
        }
    }

    std::mutex mutex;
    const std::vector<std::vector<Reply>> script;
    std::size_t messages = 0;
    std::multimap<std::int64_t, void (*) (Session&)> due;
    std::jthread thread { [this] (const std::stop_token& stop) { run (stop); } };
};

void ok (Session& session) { session.acknowledge(); }
void no (Session& session) { session.refuse (""); }
void answer (Session& session) { session.activeSlot(); }

TEST (ReplyHandlers, WhateverTheRepliesToOneExchangeTheNextTwoGetTheirOwn)
{
    struct Case
    {
        const char* name;
        bool isQuery;
        std::uint32_t patience_ms;
        std::vector<Receiver::Reply> replies;
        std::int32_t expected;
        int work_ms = 0; ///< of the next two
    };

    const Case cases[] = {
        { "a command in order", false, 5000, { { 0, ok } }, ReplyState::acknowledged },
        { "acknowledged twice", false, 5000, { { 0, ok }, { 3, ok } }, ReplyState::acknowledged },
        { "refused twice", false, 5000, { { 0, no }, { 3, no } }, ReplyState::refused },
        { "a query answered and acknowledged", true, 5000, { { 0, answer }, { 2, ok } }, ReplyState::answered },
        { "a query acknowledged and answered", true, 5000, { { 0, ok }, { 5, answer } }, ReplyState::answered },
        { "a query that is only acknowledged", true, 5000, { { 0, ok } }, ReplyState::acknowledged },
        { "acknowledged late", false, 20, { { 500, ok } }, ReplyState::pending, 500 },
        { "answered late", true, 20, { { 500, answer } }, ReplyState::pending, 500 },
        { "refused late", false, 20, { { 500, no } }, ReplyState::pending, 510 },
        { "never answered", true, 20, {}, ReplyState::pending },
    };

    for (const auto& row : cases)
    {
        const auto run = [&row] {
            Receiver receiver ({ row.replies, { { row.work_ms, no } }, { { row.work_ms, ok } }, { { 0, answer } } });
            auto& dispatcher = receiver.session.dispatcher;
            const auto exchange = [&] (bool isQuery, std::uint32_t patience_ms) {
                const auto with = [&] (AcknowledgeHandler&& handler) {
                    EXPECT_EQ (0, dispatcher.Send (someVolume()));
                    return handler.Wait (patience_ms);
                };
                return isQuery ? with (MessageHandler<ActiveFilterSlot> (dispatcher))
                               : with (AcknowledgeHandler (dispatcher));
            };

            return std::vector { exchange (row.isQuery, row.patience_ms), exchange (false, 5000),
                                 exchange (false, 5000), exchange (true, 5000) };
        };

        const std::vector expected { row.expected, ReplyState::refused, ReplyState::acknowledged,
                                     ReplyState::answered };
        auto states = run();

        // A machine that is busy elsewhere may keep a second reply back until the look is over.
        for (int more = 0; more < 15 && states != expected; ++more)
            states = run();

        // Of two replies that arrive before the waiting thread runs, the last one counts.
        states[0] = row.replies.size() > 1 ? row.expected : states[0];
        EXPECT_EQ (expected, states) << row.name;
    }
}

}
