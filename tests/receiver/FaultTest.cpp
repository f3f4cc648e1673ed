// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "tests/receiver/TestHost.h"
#include "tools/receiver/network/Receiver.h"

namespace veltra::receiver {
namespace {

using namespace std::chrono_literals;
using Action = Fault::Action;

veltraio::Request unitRequest()
{
    veltraio::Request message;
    message.set_requesttype (veltraio::Request::RequestType_kGetUnit);
    message.set_deviceindex (0);
    return message;
}

veltraio::FilteringState filteringOn()
{
    veltraio::FilteringState message;
    message.set_deviceindex (0);
    message.set_isfiltering (true);
    return message;
}

/** A receiver with one fault at the first "FilteringState" or "GetUnit"; what comes after must work. Only what a host
    does not show by how it fares: the faults that it does show are those of the reliability tests. */
class ReceiverFault : public ::testing::Test
{
protected:
    void setFault (Fault fault) { receiver.setFaults ({ std::move (fault) }); }

    void expectWorking()
    {
        host.send (unitRequest());
        EXPECT_TRUE (host.receiveA<veltraio::Unit>());
    }

    Receiver receiver { shippedProfile ("stereo") };
    TestHost host { receiver.port() };
};

TEST_F (ReceiverFault, LosesAMessageOrItsReply)
{
    setFault ({ .action = Action::lose, .type = "FilteringState" });
    host.send (filteringOn());
    expectWorking();
    EXPECT_FALSE (receiver.settings().isFiltering);
    EXPECT_FALSE (receiver.messages ("FilteringState").at (0).wasCarriedOut);

    setFault ({ .action = Action::loseReply, .type = "FilteringState" });
    host.send (filteringOn());
    expectWorking();
    EXPECT_TRUE (receiver.settings().isFiltering);
}

TEST_F (ReceiverFault, DelaysAReplyAndSendsOneInPieces)
{
    setFault ({ .action = Action::delay, .type = "FilteringState", .pause = 100ms });
    auto start = std::chrono::steady_clock::now();
    host.send (filteringOn());
    host.send (unitRequest());
    EXPECT_TRUE (host.receiveA<veltraio::Acknowledge>());
    EXPECT_GE (std::chrono::steady_clock::now() - start, 100ms);
    EXPECT_TRUE (host.receiveA<veltraio::Unit>()) << "what came meanwhile";

    setFault ({ .action = Action::pieces, .type = "GetUnit", .bytes = 40, .pause = 10ms });
    start = std::chrono::steady_clock::now();
    expectWorking();
    EXPECT_GE (std::chrono::steady_clock::now() - start, 20ms) << "three pieces at least, with two pauses";
}

TEST_F (ReceiverFault, SendsNoiseWrongChecksumsAndCopies)
{
    setFault ({ .action = Action::noise, .type = "GetUnit", .bytes = 1000 });
    expectWorking();
    EXPECT_EQ (host.noiseBytes, 1000u);

    setFault ({ .action = Action::wrongChecksum, .type = "GetUnit" });
    host.send (unitRequest());
    EXPECT_FALSE (host.receive()->checksumFits);
    expectWorking();

    setFault ({ .action = Action::duplicate, .type = "GetUnit", .bytes = 3 });
    expectWorking();
    EXPECT_TRUE (host.receiveA<veltraio::Unit>());
    EXPECT_TRUE (host.receiveA<veltraio::Unit>());
    expectWorking();
}

TEST_F (ReceiverFault, ClosesInTheMiddleOfAReplyAndWhereAConnectionBegins)
{
    EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 1; }));
    {
        TestHost cut (receiver.port());
        setFault ({ .action = Action::close, .type = "FilteringState", .bytes = 10 });
        cut.send (filteringOn());
        EXPECT_EQ (cut.waitForEnd(), "bytes");
        EXPECT_FALSE (cut.receive());
    }

    setFault ({ .action = Action::close, .type = "connect" });
    TestHost second (receiver.port());
    EXPECT_EQ (second.waitForEnd(), "closed");
    expectWorking();
}

TEST_F (ReceiverFault, DoesNotHoldUpTheEndOfTheReceiver)
{
    Receiver::Options options;
    options.faults = { { .action = Action::delay, .type = "*", .pause = 60000ms } };
    auto slow = std::make_unique<Receiver> (shippedProfile ("stereo"), options);
    TestHost waiting (slow->port());
    waiting.send (unitRequest());
    EXPECT_TRUE (slow->waitFor ([&] { return slow->messageCount ("Request") == 1; }));

    const auto start = std::chrono::steady_clock::now();
    slow = nullptr;
    EXPECT_LT (std::chrono::steady_clock::now() - start, 20s);
}

}
}
