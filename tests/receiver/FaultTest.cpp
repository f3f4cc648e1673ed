// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "tests/receiver/TestHost.h"
#include "tools/receiver/device/FaultScript.h"
#include "tools/receiver/network/Receiver.h"

namespace veltra::receiver {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/** What a fault does and a host does not notice; the reliability tests show what a host notices. */
class ReceiverFault : public ::testing::Test
{
protected:
    void setFault (const std::string& script)
    {
        std::string error;
        receiver.setFaults (parseFaults (script, error).value());
    }

    Receiver receiver { shippedProfile ("stereo") };
    TestHost host { receiver.port() };
    const std::string question = "Request requestType: RequestType_kGetFilteringState deviceIndex: 0";
    const std::string off = "FilteringState deviceIndex: 0\nisFiltering: false\n";
    const std::string on = "FilteringState deviceIndex: 0\nisFiltering: true\n";
};

TEST_F (ReceiverFault, ALostMessageIsNotCarriedOutAndOneWithoutAReplyIs)
{
    setFault ("lose FilteringState 1\nlose-reply FilteringState 2");
    host.sendBytes (TestHost::envelopeOf ("FilteringState deviceIndex: 0 isFiltering: true"));
    EXPECT_EQ (off, host.say (question));
    EXPECT_FALSE (receiver.messages ("FilteringState").at (0).wasCarriedOut);
    host.sendBytes (TestHost::envelopeOf ("FilteringState deviceIndex: 0 isFiltering: true"));
    EXPECT_EQ (on, host.say (question));
}

TEST_F (ReceiverFault, RepliesAreDelayedCutRepeatedAndPrecededByNoise)
{
    setFault ("delay GetFilteringState 1 100\npieces GetFilteringState 2 7 10\nnoise GetFilteringState 3 1000\n"
              "duplicate GetFilteringState 4 3\nwrong-checksum GetFilteringState 5");
    auto start = Clock::now();
    EXPECT_EQ (off, host.say (question));
    EXPECT_GE (Clock::now() - start, 100ms);

    start = Clock::now();
    EXPECT_EQ (off, host.say (question));
    EXPECT_GE (Clock::now() - start, 20ms) << "19 bytes are three pieces with two pauses";

    EXPECT_EQ (off, host.say (question));
    EXPECT_EQ (1000u, host.noiseBytes);

    EXPECT_EQ (off, host.say (question));
    EXPECT_EQ (off, host.receive());
    EXPECT_EQ (off, host.receive());
    EXPECT_EQ ("wrong checksum", host.say (question));
}

}
}
