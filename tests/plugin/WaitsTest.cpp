// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What happens when no reply comes. Each case takes as long as the time-out that it is about. Silence to
    the other descriptions and to the later stages of a download is among the faults of the reliability tests.
*/

#include "tests/support/DeviceFixture.h"

#include <future>

#include "tests/support/Operations.h"

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
    settings["Timeout"] = "off";
    setFaults ("delay GetProtocolInfo 1 1300");
    EXPECT_TRUE (find());
    EXPECT_TRUE (failuresLogged().empty());
}

/** All at once, each on a device of its own. */
TEST_F (Waits, EachOperationEndsWhenNoReplyComes)
{
    std::vector<std::future<std::string>> results;

    for (std::size_t i = 0; i < operations().size(); ++i)
        open();

    setFaults ("lose * *");

    for (std::uint32_t i = 0; i < operations().size(); ++i)
        results.push_back (std::async (std::launch::async, [this, i] { return operations()[i].run (device (i)); }));

    for (std::uint32_t i = 0; i < operations().size(); ++i)
    {
        const auto& operation = operations()[i];
        EXPECT_EQ (results[i].get(), operation.failure) << operation.name;
        EXPECT_EQ (takeLastError (device (i)), operation.kind == Operation::Kind::wordyCommand ? "Timeout" : "")
            << operation.name;
    }

    EXPECT_EQ (failuresLogged(), (Lines { "ERROR Error settings active slot" }));
    setFaults ("");
    EXPECT_TRUE (device (0).SetVolume (0.5f)) << "the next exchange works";
}

TEST_F (Waits, ASilentDownloadEnds)
{
    auto& opened = open();
    setFaults ("lose LoadFilter 1");
    EXPECT_EQ (download (opened), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "Timeout sending LoadFilter");
    EXPECT_EQ (failuresLogged(), (Lines { "ERROR Timeout sending LoadFilter to endpoint device" }));
    EXPECT_EQ (setsIn (opened, 2), 0u);
    EXPECT_EQ (download (opened), kResultOk);
}

TEST_F (Waits, ACancellationNeedsNoReplyAndARemovalDoes)
{
    setFaults ("lose DownloadCancelled 1\nlose RemoveFilter 1");
    progress.onProgress = [] { return false; };
    auto& opened = open();
    EXPECT_EQ (download (opened), kResultOk);

    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    EXPECT_FALSE (opened.RemoveFilterSet (set));
    EXPECT_EQ (setsIn (opened, 1), 1u) << "nothing has changed";
    EXPECT_TRUE (opened.RemoveFilterSet (set));
}

}
