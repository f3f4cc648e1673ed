// SPDX-License-Identifier: GPL-3.0-or-later

#include "protocol/ReplyHandlers.h"
#include "common/Clock.h"
#include "protocol/Dispatcher.h"
#include "tests/support/Envelope.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Testing.h"

namespace {

using namespace veltraio;
using veltra::test::envelopeOf;

struct Session
{
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

    LocalConnection& connection = *new LocalConnection; // the dispatcher's
    Dispatcher dispatcher { std::unique_ptr<LocalConnection> (&connection), kEnvelopeMarkerText, true };
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

/** ReplyLedgerTest.cpp has the rules; downloads against receivers of all manners are among the reliability tests. */
TEST (ReplyHandlers, AnAcknowledgedQueryWaitsForItsAnswerAndALateReplyIsNotTheNextExchanges)
{
    Session session;
    const auto afterPause = [&] (void (Session::*say)()) {
        return std::jthread ([&session, say] {
            std::this_thread::sleep_for (std::chrono::milliseconds (5));
            (session.*say)();
        });
    };

    {
        MessageHandler<ActiveFilterSlot> query (session.dispatcher);
        EXPECT_EQ (0, session.dispatcher.Send (someVolume()));
        session.acknowledge();
        const auto device = afterPause (&Session::activeSlot);
        EXPECT_EQ (ReplyState::answered, query.Wait (5000));
    }

    {
        AcknowledgeHandler lost (session.dispatcher);
        EXPECT_EQ (0, session.dispatcher.Send (someVolume()));
        EXPECT_EQ (ReplyState::pending, lost.Wait (20));
    }

    {
        AcknowledgeHandler next (session.dispatcher);
        EXPECT_EQ (0, session.dispatcher.Send (someVolume()));
        session.refuse ("of the one before");
        const auto device = afterPause (&Session::acknowledge);
        EXPECT_EQ (ReplyState::acknowledged, next.Wait (5000));
    }

    AcknowledgeHandler last (session.dispatcher);
    EXPECT_EQ (0, session.dispatcher.Send (someVolume()));
    session.refuse ("");
    EXPECT_EQ (ReplyState::refused, last.Wait (5000));
}

}
