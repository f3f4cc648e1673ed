// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "protocol/veltraio.pb.h"
#include "tools/receiver/device/FaultScript.h"

namespace veltra::receiver {
namespace {

std::vector<Fault> parsed (const std::string& text)
{
    std::string error;
    const auto faults = parseFaults (text, error);
    EXPECT_TRUE (faults) << error;
    return faults.value_or (std::vector<Fault>());
}

std::string errorOf (const std::string& text)
{
    std::string error;
    EXPECT_FALSE (parseFaults (text, error)) << text;
    return error;
}

TEST (FaultScript, IsOneFaultALine)
{
    const auto faults = parsed ("# a comment\n"
                                "refuse FilterDataChunk 3 'no room'  # and why\n\n"
                                "pieces\tGetUnit 2-4 7 20\r\n"
                                "close * 5+\n"
                                "answer GetVolume * ChannelAttenuation \"deviceIndex: 0 channel: 1 attenuation: 0.5\"");
    ASSERT_EQ (faults.size(), 4u);
    EXPECT_EQ (faults[0].action, Fault::Action::refuse);
    EXPECT_EQ (faults[0].type, "FilterDataChunk");
    EXPECT_EQ (faults[0].text, "no room");
    EXPECT_EQ (faults[1].first, 2u);
    EXPECT_EQ (faults[1].last, 4u);
    EXPECT_EQ (faults[1].bytes, 7u);
    EXPECT_EQ (faults[1].pause.count(), 20);
    EXPECT_EQ (faults[2].first, 5u);
    EXPECT_EQ (faults[2].last, Fault::kForEver);

    veltraio::ChannelAttenuation message;
    EXPECT_EQ (faults[3].text, "ChannelAttenuation");
    EXPECT_TRUE (message.ParseFromString (faults[3].body));
    EXPECT_EQ (message.attenuation(), 0.5f);
}

TEST (FaultScript, TellsTheLineAndWhatIsWrongWithIt)
{
    EXPECT_EQ (errorOf ("\nrefus Ping 1"), "line 2: \"refus\" is no fault");
    EXPECT_EQ (errorOf ("lose Pong 1"), "line 1: \"Pong\" is no message of a host");
    EXPECT_EQ (errorOf ("lose Ping"), "line 1: too few words for \"lose TYPE WHICH\"");
    EXPECT_EQ (errorOf ("delay Ping 1"), "line 1: too few words for \"delay TYPE WHICH MS\"");
    EXPECT_EQ (errorOf ("lose Ping 1 2"), "line 1: too many words for \"lose TYPE WHICH\"");
    EXPECT_EQ (errorOf ("noise Ping 1 x"), "line 1: \"x\" is no number for N");
    EXPECT_EQ (errorOf ("noise Ping 1 -4"), "line 1: \"-4\" is no number for N");
    EXPECT_EQ (errorOf ("refuse Ping 1 'oh"), "line 1: a quote is not closed");
    EXPECT_EQ (errorOf ("refuse connect 1"), "line 1: \"refuse\" does not apply to connect");
    EXPECT_EQ (errorOf ("answer Ping 1 Pang"), "line 1: \"Pang\" is no message");
    EXPECT_EQ (errorOf ("answer Ping 1 Volume 'volume: x'").substr (0, 30), "line 1: the fields of Volume: ");

    for (const auto* which : { "0", "5-3", "3-0" })
        EXPECT_EQ (errorOf (std::string ("lose Ping ") + which),
                   "line 1: WHICH counts from 1: \"3\", \"3-5\", \"3+\" or \"*\"");
}

}
}
