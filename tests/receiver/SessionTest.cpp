// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "tests/receiver/TestHost.h"
#include "tools/receiver/network/Receiver.h"

namespace veltra::receiver {
namespace {

using namespace std::chrono_literals;

TEST (DeviceModel, RefusesWhatDoesNotExistOrIsOutOfRange)
{
    DeviceModel model (shippedProfile ("seven-one"), {}, nullptr);
    ModelHost host (model);
    EXPECT_EQ ("Volume is not between 0 and 1", host.say ("Volume deviceIndex: 0 volume: nan"));
    EXPECT_EQ ("No filter slot 4, the device has 4", host.say ("ActiveFilterSlot deviceIndex: 0 slotIndex: 4"));
    EXPECT_EQ ("No device 1, the receiver has 1", host.say ("FilteringState deviceIndex: 1 isFiltering: true"));
    EXPECT_EQ ("No channel 8",
               host.say ("Request requestType: RequestType_kGetChannelAttenuation deviceIndex: 0 channel: 8"));
    EXPECT_EQ ("Volume lacks a required field", host.say ("Volume"));
}

class ReceiverSession : public ::testing::Test
{
protected:
    Receiver receiver { shippedProfile ("seven-one") };
    TestHost host { receiver.port() };
};

TEST_F (ReceiverSession, AnswersUnknownMessagesButNoAcknowledgementsAndDropsWrongChecksums)
{
    auto bytes = TestHost::envelopeOf ("Ping");
    bytes[10] = static_cast<char> (bytes[10] + 1);
    host.sendBytes (bytes);
    EXPECT_EQ ("Acknowledge ok: false\nerrorMessage: \"Unknown message\"\n", host.receive());

    auto damaged = TestHost::envelopeOf ("Ping");
    damaged[14] = 1;
    host.sendBytes (damaged + TestHost::envelopeOf ("Acknowledge ok: true") + TestHost::envelopeOf ("Pong") + "noise");
    EXPECT_EQ ("Pong ", host.say ("Ping"));

    const auto heard = receiver.messages();
    ASSERT_EQ (4u, heard.size());
    EXPECT_EQ ("Unknown message", heard[0].refusal);
    EXPECT_FALSE (heard[0].wasCarriedOut);
    EXPECT_TRUE (heard[3].wasCarriedOut);
}

TEST_F (ReceiverSession, OutlivesItsSessionsAndTakesSeveralAtOnce)
{
    EXPECT_EQ ("Acknowledge ok: true\n", host.say ("ActiveFilterSlot deviceIndex: 0 slotIndex: 2"));
    {
        TestHost second (receiver.port());
        const std::string question = "Request requestType: RequestType_kGetActiveFilterSlot deviceIndex: 0";
        EXPECT_EQ ("ActiveFilterSlot deviceIndex: 0\nslotIndex: 2\n", second.say (question));
        EXPECT_EQ (2u, receiver.openSessions());
        EXPECT_EQ (TestHost::envelopeOf (question), receiver.bytes (2));
    }

    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 1; }));
    receiver.endSessions (HostSession::Ending::close);
    EXPECT_EQ ("closed", host.waitForEnd());
    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 0; }));

    TestHost third (receiver.port());
    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 1; }));
    receiver.endSessions (HostSession::Ending::reset);
    EXPECT_EQ ("reset", third.waitForEnd());
}

TEST (Receiver, ASilentSessionGivesWayWhenThereAreTooMany)
{
    for (const auto silence : { std::chrono::minutes (10), std::chrono::minutes (0) })
    {
        Receiver::Options options;
        options.silence = silence;
        Receiver receiver (shippedProfile ("stereo"), options);
        std::vector<std::unique_ptr<TestHost>> hosts;

        for (int i = 0; i < 64; ++i)
            EXPECT_EQ ("Pong ", hosts.emplace_back (std::make_unique<TestHost> (receiver.port()))->say ("Ping"));

        EXPECT_EQ ("Pong ", hosts[0]->say ("Ping"));
        TestHost last (receiver.port());
        EXPECT_EQ ("closed", silence > 0s ? last.waitForEnd() : hosts[1]->waitForEnd());
        EXPECT_EQ ("Pong ", silence > 0s ? hosts[1]->say ("Ping") : last.say ("Ping"));
    }
}

TEST (Receiver, ClosesItsConnectionsWhenItGoesAndSaysWhenItCannotListen)
{
    Receiver::Options options;
    options.faults = { { .action = Fault::Action::delay, .type = "*", .pause = std::chrono::minutes (10) } };
    auto receiver = std::make_unique<Receiver> (shippedProfile ("stereo"), options);
    TestHost host (receiver->port());
    host.sendBytes (TestHost::envelopeOf ("Ping"));
    EXPECT_TRUE (receiver->waitFor ([&] { return receiver->messageCount ("Ping") == 1; }));

    options.port = receiver->port();
    EXPECT_THROW (Receiver (shippedProfile ("stereo"), options), std::system_error);
    options.bindAddress = "localhost";
    EXPECT_THROW (Receiver (shippedProfile ("stereo"), options), std::system_error);

    receiver = nullptr;
    EXPECT_EQ ("closed", host.waitForEnd()) << "a delayed reply does not hold it up";
}

}
}
