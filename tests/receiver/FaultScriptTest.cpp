// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "protocol/veltraio.pb.h"
#include "tools/receiver/device/FaultScript.h"

namespace veltra::receiver {
namespace {

TEST (FaultScript, IsOneFaultALine)
{
    std::string error;
    const auto parsed = parseFaults ("# a comment\n"
                                     "refuse FilterDataChunk 3 'no # room'  # and why\n\n"
                                     "pieces\tGetUnit 2-4 7 20\r\n"
                                     "close * 5+\n"
                                     "answer GetVolume * Volume \"deviceIndex: 0 volume: 0.5 description: 'x'\"",
                                     error);
    ASSERT_TRUE (parsed) << error;
    const auto& faults = *parsed;
    ASSERT_EQ (4u, faults.size());
    EXPECT_EQ ("no # room", faults[0].text);
    EXPECT_EQ (2u, faults[1].first);
    EXPECT_EQ (4u, faults[1].last);
    EXPECT_EQ (7u, faults[1].bytes);
    EXPECT_EQ (20, faults[1].pause.count());
    EXPECT_EQ (5u, faults[2].first);
    EXPECT_EQ (Fault::kForEver, faults[2].last);

    veltraio::Volume message;
    EXPECT_TRUE (message.ParseFromString (faults[3].body));
    EXPECT_EQ ("x", message.description());
}

TEST (FaultScript, AnErrorSaysWhatIsWrongAndShowsTheRightForm)
{
    const std::pair<const char*, const char*> errors[] {
        { "delay Ping 1", "MS is missing; expected \"delay TYPE WHICH MS\"" },
        { "refuse Ping 1 no room", "\"room\" is one argument too many; expected \"refuse TYPE WHICH ['TEXT']\"" },
        { "refuse Ping 1 'oh", "a quote is not closed; expected \"refuse TYPE WHICH ['TEXT']\"" },
        { "noise Ping 1 -4", "\"-4\" is not a number for N; expected \"noise TYPE WHICH N\"" },
        { "refuse connect 1", "\"refuse\" does not apply to connect; expected \"refuse TYPE WHICH ['TEXT']\"" },
        { "lose Pong 1",
          "\"Pong\" is not a TYPE: a message of a host (FilterDataChunk), a kind of request (GetVolume), *, "
          "AudioData or connect; expected \"lose TYPE WHICH\"" },
        { "\nrefus Ping 1",
          "line 2: \"refus\" is not a fault; expected \"NAME TYPE WHICH ARGUMENTS\" with one of these "
          "names: refuse lose lose-reply delay wrong-checksum wrong-length noise pieces close reset answer "
          "duplicate truncate limit" },
        { "answer Ping 1 Volume 'volume: x'",
          "the FIELDS of Volume: line 1, column 9: Expected double, got: x; expected \"answer TYPE WHICH MESSAGE ['FIELDS']\"" },
        { "lose Ping 0", "\"0\" is not a WHICH: 3, 3-5, 3+ or *, counted from 1; expected \"lose TYPE WHICH\"" },
    };

    for (const auto& [fault, expected] : errors)
    {
        std::string error;
        EXPECT_FALSE (parseFaults (fault, error));
        EXPECT_EQ (expected, error);
    }
}

}
}
