// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What happens when no reply comes. Each case takes as long as the time-out that it is about. Silence in
    the other operations is among the faults of the reliability tests.
*/

#include "common/SettingKeys.h"
#include "tests/support/DeviceFixture.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Waits : public DeviceFixture
{
};

}

TEST_F (Waits, ASilentProtocolInfoIsNotFatal)
{
    setFaults ("lose GetProtocolInfo 1");
    auto& opened = open();
    EXPECT_EQ (failuresLogged(), (Lines { "WARN Error retrieveing Protocol information" }));
    EXPECT_EQ (download (opened), kResultOk);
}

TEST_F (Waits, WithoutTimeOutsALateReplyIsStillTaken)
{
    settings[keys::kTimeout] = "off";
    setFaults ("delay GetProtocolInfo 1 1300");
    EXPECT_TRUE (find());
    EXPECT_TRUE (failuresLogged().empty());
}

TEST_F (Waits, ADownloadOrARemovalWithoutReplyEndsAndACancellationNeedsNone)
{
    auto& opened = open();
    setFaults ("lose LoadFilter 1\nlose DownloadCancelled 1\nlose RemoveFilter 1");
    EXPECT_EQ (download (opened), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "Timeout sending LoadFilter");
    EXPECT_EQ (failuresLogged(), (Lines { "ERROR Timeout sending LoadFilter to endpoint device" }));
    EXPECT_EQ (setsIn (opened, 2), 0u);

    progress.onProgress = [] { return false; };
    EXPECT_EQ (download (opened), kResultOk);

    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    EXPECT_FALSE (opened.RemoveFilterSet (set));
    EXPECT_EQ (setsIn (opened, 1), 1u) << "nothing has changed";
    EXPECT_TRUE (opened.RemoveFilterSet (set));
}

}
