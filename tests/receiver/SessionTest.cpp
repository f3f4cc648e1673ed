// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "tests/receiver/TestHost.h"
#include "tools/receiver/network/Receiver.h"

namespace veltra::receiver {
namespace {

using namespace veltraio;

veltraio::Request request (Request::RequestType type, std::uint32_t device = 0)
{
    veltraio::Request message;
    message.set_requesttype (type);
    message.set_deviceindex (device);
    return message;
}

template <typename Message>
Message withDevice (std::uint32_t index)
{
    Message message;
    message.set_deviceindex (index);
    return message;
}

class ReceiverSession : public ::testing::Test
{
protected:
    Receiver receiver { shippedProfile ("seven-one") };
    TestHost host { receiver.port() };
};

TEST_F (ReceiverSession, RefusesWhatDoesNotExistOrIsOutOfRangeAndSaysWhy)
{
    auto volume = withDevice<Volume> (0);
    volume.set_volume (1.5f);
    EXPECT_EQ (host.command (volume), "Volume is not between 0 and 1");
    volume.set_volume (std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ (host.command (volume), "Volume is not between 0 and 1");

    auto slot = withDevice<ActiveFilterSlot> (0);
    slot.set_slotindex (4);
    EXPECT_EQ (host.command (slot), "No filter slot 4, the device has 4");
    auto filtering = withDevice<FilteringState> (1);
    filtering.set_isfiltering (true);
    EXPECT_EQ (host.command (filtering), "No device 1, the receiver has 1");
    auto question = request (Request::RequestType_kGetChannelAttenuation);
    question.set_channel (8);
    EXPECT_EQ (host.command (question), "No channel 8");

    EXPECT_EQ (host.command (Volume()), "Volume lacks a required field");
    EXPECT_EQ (host.command (LoadFilterProgress()), "Unexpected message LoadFilterProgress");
    EXPECT_EQ (receiver.settings().volume, DeviceModel::kReferenceVolume);

    const auto heard = receiver.messages ("ActiveFilterSlot");
    ASSERT_EQ (heard.size(), 1u);
    EXPECT_FALSE (heard[0].wasCarriedOut);
    EXPECT_EQ (heard[0].refusal, "No filter slot 4, the device has 4");
}

TEST_F (ReceiverSession, AnswersUnknownMessagesButNoAcknowledgementsAndDropsWrongChecksums)
{
    auto bytes = TestHost::envelopeOf (Ping());
    bytes[10] = static_cast<char> (bytes[10] + 1);
    host.sendBytes (bytes);
    EXPECT_EQ (host.receiveA<Acknowledge>()->errormessage(), "Unknown message");

    auto damaged = TestHost::envelopeOf (Ping());
    damaged[14] = 1;
    host.sendBytes (damaged);
    Acknowledge acknowledge;
    acknowledge.set_ok (true);
    host.send (acknowledge);
    host.send (Pong());
    host.sendBytes ("noise");
    host.send (Ping());
    EXPECT_TRUE (host.receiveA<Pong>());
    EXPECT_EQ (receiver.messages().size(), 4u);
}

TEST_F (ReceiverSession, RefusesEnvelopesAboveItsLimit)
{
    Volume volume;
    volume.set_deviceindex (0);
    volume.set_volume (0.5f);
    volume.set_description (std::string (460 - TestHost::envelopeOf (volume).size() - 3, 'x'));
    ASSERT_EQ (TestHost::envelopeOf (volume).size(), 460u);
    receiver.setMessageLimit (460);
    EXPECT_EQ (host.command (volume), "ok");
    volume.mutable_description()->push_back ('x');
    EXPECT_EQ (host.command (volume), "Envelope of 461 bytes exceeds the limit of 460");
    receiver.setMessageLimit (0);
    EXPECT_EQ (host.command (volume), "ok");
}

TEST_F (ReceiverSession, OutlivesItsSessionsAndTakesSeveralAtOnce)
{
    auto slot = withDevice<ActiveFilterSlot> (0);
    slot.set_slotindex (2);
    EXPECT_EQ (host.command (slot), "ok");
    {
        TestHost second (receiver.port());
        second.send (request (Request::RequestType_kGetActiveFilterSlot));
        EXPECT_EQ (second.receiveA<ActiveFilterSlot>()->slotindex(), 2u);
        EXPECT_EQ (receiver.openSessions(), 2u);
        EXPECT_EQ (receiver.bytes (2), TestHost::envelopeOf (request (Request::RequestType_kGetActiveFilterSlot)));
    }
    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 1; }));
    EXPECT_EQ (receiver.sessionCount(), 2u);

    receiver.endSessions (HostSession::Ending::close);
    EXPECT_EQ (host.waitForEnd(), "closed");
    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 0; }));

    TestHost third (receiver.port());
    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 1; }));
    receiver.endSessions (HostSession::Ending::reset);
    EXPECT_EQ (third.waitForEnd(), "reset");
}

TEST (Receiver, ClosesItsConnectionsWhenItGoesAndSaysWhenItCannotListen)
{
    auto receiver = std::make_unique<Receiver> (shippedProfile ("stereo"));
    EXPECT_EQ (receiver->address(), "127.0.0.1:" + std::to_string (receiver->port()));
    TestHost host (receiver->port());
    receiver->waitFor ([&] { return receiver->openSessions() == 1; });

    Receiver::Options options;
    options.port = receiver->port();
    EXPECT_THROW (Receiver (shippedProfile ("stereo"), options), std::system_error);
    options.bindAddress = "localhost";
    EXPECT_THROW (Receiver (shippedProfile ("stereo"), options), std::system_error);

    receiver = nullptr;
    EXPECT_EQ (host.waitForEnd(), "closed");
}

}
}
