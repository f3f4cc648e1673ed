// SPDX-License-Identifier: GPL-3.0-or-later
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
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
          dispatcher (std::move (local), "2101FF", useTimeouts)
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

FilterDataChunk chunkOf (std::size_t dataSize)
{
    FilterDataChunk chunk;
    chunk.set_deviceindex (0);
    chunk.set_slotindex (0);
    chunk.set_dataoffset (0);
    chunk.add_data (std::string (dataSize, 'x'));
    return chunk;
}

TEST (Dispatcher, TheMessageLimitCountsTheWholeEnvelope)
{
    Session session;
    session.dispatcher.setMessageLimit (460);

    for (const int size : { 460, 461, 500 })
    {
        // Field 1 takes 2 bytes, so do the tags of fields 2 and 3 and the slot, the length of data takes 2.
        const auto chunk = chunkOf (static_cast<std::size_t> (size) - 15 - 3 * 2 - 1 - 2);
        ByteVector bytes (10);

        EXPECT_EQ (size - 460, session.dispatcher.Send (chunk, &bytes));
        EXPECT_EQ (size > 460 ? 10u : 0u, bytes.size()) << "emptied only when the message went out";
    }

    ASSERT_EQ (1u, session.connection.written.size());
    EXPECT_EQ (460u, session.connection.written[0].size());

    for (const int noLimit : { 0, -1 })
    {
        session.dispatcher.setMessageLimit (noLimit);
        EXPECT_EQ (0, session.dispatcher.Send (chunkOf (100000)));
    }
}

TEST (Dispatcher, AMessageThatIsIncompleteOrNotTakenWholeIsAFailure)
{
    Session session;
    EXPECT_EQ (-1, session.dispatcher.Send (Volume()));
    EXPECT_TRUE (session.connection.written.empty());

    ByteVector bytes (10);
    session.connection.takesAll = false;
    EXPECT_EQ (-1, session.dispatcher.Send (someVolume(), &bytes));
    session.connection.refuses = true;
    EXPECT_EQ (-1, session.dispatcher.Send (someVolume(), &bytes));
    EXPECT_EQ (10u, bytes.size());

    session.connection.refuses = false;
    session.connection.takesAll = true;
    EXPECT_EQ (0, session.dispatcher.Send (someVolume(), &bytes));
    EXPECT_EQ (envelopeOf ("veltraio.Volume", { 0x08, 0x00, 0x15, 0x00, 0x00, 0x0c, 0x42 }),
               session.connection.written.back());
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

    // A text that stops in the middle of a character is a hazard to whoever walks through it.
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

TEST (AcknowledgeHandler, AWaitLastsItsTimeAtMostAndEndsWithTheReply)
{
    Session session;
    const auto start = veltra::steadyMilliseconds();
    {
        AcknowledgeHandler handler (session.dispatcher);
        EXPECT_EQ (ReplyState::pending, handler.Wait (50));
        EXPECT_GE (veltra::steadyMilliseconds() - start, 50);
    }

    AcknowledgeHandler handler (session.dispatcher);
    std::thread device ([&] {
        std::this_thread::sleep_for (std::chrono::milliseconds (30));
        session.acknowledge();
    });
    EXPECT_EQ (ReplyState::acknowledged, handler.Wait (60000));
    device.join();
    EXPECT_LT (veltra::steadyMilliseconds() - start, 30000);
}

TEST (AcknowledgeHandler, WithoutTimeoutsItWaitsOnPastItsTime)
{
    Session session (false);
    AcknowledgeHandler handler (session.dispatcher);
    std::atomic<bool> returned { false };
    std::thread application ([&] {
        EXPECT_EQ (ReplyState::acknowledged, handler.Wait (1));
        returned = true;
    });

    std::this_thread::sleep_for (std::chrono::milliseconds (50));
    EXPECT_FALSE (returned);
    session.acknowledge();
    application.join();
}

TEST (MessageHandler, AFloodOfRepliesDoesNotDisturbHandlersThatComeAndGoOnSeveralThreads)
{
    Session session;
    std::atomic<bool> done { false };
    std::jthread device ([&] {
        while (! done)
        {
            session.activeSlot();
            session.refuse ("again and again");
        }
    });

    {
        std::vector<std::jthread> hosts;

        for (int i = 0; i < 3; ++i)
            hosts.emplace_back ([&] {
                for (int turn = 0; turn < 100; ++turn)
                {
                    MessageHandler<ActiveFilterSlot> handler (session.dispatcher);
                    const auto state = handler.Wait (10000);
                    EXPECT_TRUE (state == ReplyState::answered
                                     ? handler.message().slotindex() == 3
                                     : state == ReplyState::refused && handler.getErrorText() == "again and again");
                }
            });
    }

    done = true;
}

}
