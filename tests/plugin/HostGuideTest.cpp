// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The program of docs/host-guide.md, compiled out of the document as C++11, does what the document says.
*/

#include <gtest/gtest.h>

#include "common/SettingKeys.h"
#include "tests/support/Program.h"
#include "tools/receiver/network/Receiver.h"
#include "tools/veltra/session/ModuleFile.h"

namespace veltra::test {

namespace {

class HostGuide : public host::Program
{
};

}

TEST_F (HostGuide, ItsProgramDescribesMeasuresAndReplacesAFilter)
{
    const receiver::Receiver receiver (receiver::shippedProfile ("stereo"));
    const host::ModuleCopy module (MODULE_FILE, { { keys::kDevice, "TCP:" + receiver.address() } });

    const auto ending = run ({ GUIDE_PROGRAM, module.path(), path ("guide.log") });

    EXPECT_EQ (0, ending.status);
    EXPECT_EQ ("", ending.err);
    EXPECT_EQ ("Morvane|Stereo 2|Main, 2 slots\n"
               "channel FL#IDX00\n"
               "channel FR#IDX01\n"
               "48000 Hz: NbrOfFIRTaps=16384;NbrOfIIRSections=30\n"
               "captured a second: yes, something to hear: yes\n"
               "slot 0 is filled\n"
               "removing \"Guide\"\n"
               "slot 0 is filled\n",
               ending.out);
    EXPECT_NE ("", read (path ("guide.log")));

    EXPECT_EQ (1u, receiver.messageCount ("RemoveFilter"));
    EXPECT_EQ (2u, receiver.messageCount ("LoadFilter"));
    EXPECT_FLOAT_EQ (0.35f, receiver.settings().volume) << "0.5 of the 70 per cent that a measurement uses";
}

}
