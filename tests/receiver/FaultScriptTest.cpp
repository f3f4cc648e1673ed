// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "protocol/veltraio.pb.h"
#include "tools/receiver/device/FaultScript.h"

namespace veltra::receiver {
namespace {

std::string errorOf (const std::string& text)
{
    std::string error;
    EXPECT_FALSE (parseFaults (text, error)) << text;
    return error;
}

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
    EXPECT_EQ (Fault::Action::refuse, faults[0].action);
    EXPECT_EQ ("FilterDataChunk", faults[0].type);
    EXPECT_EQ ("no # room", faults[0].text);
    EXPECT_EQ (2u, faults[1].first);
    EXPECT_EQ (4u, faults[1].last);
    EXPECT_EQ (7u, faults[1].bytes);
    EXPECT_EQ (20, faults[1].pause.count());
    EXPECT_EQ (5u, faults[2].first);
    EXPECT_EQ (Fault::kForEver, faults[2].last);

    veltraio::Volume message;
    EXPECT_EQ ("Volume", faults[3].text);
    EXPECT_TRUE (message.ParseFromString (faults[3].body));
    EXPECT_EQ ("x", message.description());
}

TEST (FaultScript, AnErrorSaysWhatIsWrongAndShowsTheRightForm)
{
    EXPECT_EQ (
        "\"Pang\" is not a TYPE: a message of a host (FilterDataChunk), a kind of request (GetVolume), *, AudioData "
        "or connect; expected \"lose TYPE WHICH\"",
        errorOf ("lose Pang 1"));
    EXPECT_TRUE (
        errorOf ("\nrefus Ping 1")
            .starts_with ("line 2: \"refus\" is not a fault; expected \"NAME TYPE WHICH ARGUMENTS\" with one of "
                          "these names: refuse lose "));

    const std::pair<const char*, const char*> errors[] {
        { "lose", "TYPE is missing; expected \"lose TYPE WHICH\"" },
        { "lose Ping", "WHICH is missing; expected \"lose TYPE WHICH\"" },
        { "delay Ping 1", "MS is missing; expected \"delay TYPE WHICH MS\"" },
        { "refuse Ping 1 no room", "\"room\" is one argument too many; expected \"refuse TYPE WHICH ['TEXT']\"" },
        { "refuse Ping 1 'oh", "a quote is not closed; expected \"refuse TYPE WHICH ['TEXT']\"" },
        { "noise Ping 1 -4", "\"-4\" is not a number for N; expected \"noise TYPE WHICH N\"" },
        { "pieces Ping 1 0", "N is 0; expected \"pieces TYPE WHICH N [MS]\"" },
        { "refuse connect 1", "\"refuse\" does not apply to connect; expected \"refuse TYPE WHICH ['TEXT']\"" },
        { "answer Ping 1 Pang", "\"Pang\" is not a message; expected \"answer TYPE WHICH MESSAGE ['FIELDS']\"" },
        { "lose Ping 0", "\"0\" is not a WHICH: 3, 3-5, 3+ or *, counted from 1; expected \"lose TYPE WHICH\"" },
        { "lose Ping 5-3", "\"5-3\" is not a WHICH: 3, 3-5, 3+ or *, counted from 1; expected \"lose TYPE WHICH\"" },
    };

    for (const auto& [fault, error] : errors)
        EXPECT_EQ (error, errorOf (fault));

    EXPECT_TRUE (errorOf ("answer Ping 1 Volume 'volume: x'").starts_with ("the FIELDS of Volume: line 1, column 9: "));
}

}
}
