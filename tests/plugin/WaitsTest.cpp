/** @file
    What happens when no reply comes. Each case takes as long as the time-out that it is about.
*/

#include "tests/plugin/DownloadFixture.h"

#include <future>

#include "tests/plugin/Operations.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Waits : public DownloadFixture
{
};

class SilentDescription : public DownloadFixture, public testing::WithParamInterface<std::pair<std::string, std::string>>
{
};

}

TEST_P (SilentDescription, DropsTheCandidate)
{
    const auto& [request, word] = GetParam();
    setFaults ("lose " + request + " 1");
    EXPECT_FALSE (find());
    EXPECT_TRUE (log.has ("ERROR Error retrieveing " + word + " information"));
    EXPECT_TRUE (find()) << "and the next search finds it";
}

INSTANTIATE_TEST_SUITE_P (Waits, SilentDescription,
    testing::Values (std::pair ("GetUnit", "Unit"), std::pair ("GetTopologyInfo", "Topology"), std::pair ("GetStimulusInfo", "Stimulus")),
    [] (const auto& description) { return description.param.second; });

TEST_F (Waits, ADescriptionWithAWrongChecksumNeverArrives)
{
    setFaults ("wrong-checksum GetUnit 1");
    EXPECT_FALSE (find());
    EXPECT_TRUE (log.has ("ERROR Error retrieveing Unit information"));
}

TEST_F (Waits, ASilentProtocolInfoIsNotFatal)
{
    setFaults ("lose GetProtocolInfo 1");
    auto& opened = open();
    EXPECT_TRUE (log.has ("WARN Error retrieveing Protocol information"));
    useFirOnly (firBytes);
    EXPECT_EQ (download (opened, filterText ("Room", std::string (460, 't'), smallFilters())), kResultFailed)
        << "above the default limit of 460, below the receiver's own";
    EXPECT_EQ (receiver->messageCount ("LoadFilter"), 0u);
    EXPECT_EQ (download (opened, smallText()), kResultOk);
}

TEST_F (Waits, WithoutTimeOutsALateReplyIsStillTaken)
{
    settings["Timeout"] = "off";
    setFaults ("delay GetProtocolInfo 1 1300");
    EXPECT_TRUE (find());
    EXPECT_FALSE (log.has ("WARN Error retrieveing Protocol information"));
}

/** All at once, each on a device of its own. */
TEST_F (Waits, EachOperationEndsWhenNoReplyComes)
{
    std::vector<std::future<std::string>> results;

    for (std::size_t i = 0; i < operations().size(); ++i)
        open();

    log.clear();
    setFaults ("lose * *");

    for (std::size_t i = 0; i < operations().size(); ++i)
        results.push_back (std::async (std::launch::async, [this, i]
        {
            return operations()[i].run (device (static_cast<std::uint32_t> (i)));
        }));

    for (std::size_t i = 0; i < operations().size(); ++i)
    {
        const auto& operation = operations()[i];
        EXPECT_EQ (results[i].get(), operation.failure) << operation.name;
        EXPECT_EQ (takeLastError (device (static_cast<std::uint32_t> (i))),
                   operation.kind == Operation::Kind::wordyCommand ? "Timeout" : "") << operation.name;

        if (! operation.logged.empty())
        {
            EXPECT_TRUE (log.has (operation.logged)) << operation.name;
        }
    }

    setFaults ("");
    EXPECT_EQ (device (0).GetMaxChannelAttenuation(), 12.0f);
    EXPECT_TRUE (device (0).SetVolume (0.5f)) << "the next exchange works";
}

TEST_F (Waits, ASilentDownloadEndsWithWords)
{
    struct Case
    {
        const char* message;
        const char* words;
        const char* logged;
    };

    const Case cases[] = { { "LoadFilter", "Timeout sending LoadFilter", "ERROR Timeout sending LoadFilter to endpoint device" },
                           { "FilterChannel", "", "" },
                           { "FilterData", "", "" } };

    for (const auto& row : cases)
    {
        startAfresh();
        auto& opened = open();
        setFaults (std::string ("lose ") + row.message + " 1");
        log.clear();
        EXPECT_EQ (download (opened, smallText()), kResultFailed) << row.message;
        EXPECT_EQ (takeLastError (opened), row.words);
        EXPECT_EQ (failuresLogged(), *row.logged != 0 ? std::vector<std::string> { row.logged } : std::vector<std::string>());
        FilterSet* set = nullptr;
        EXPECT_FALSE (opened.GetFilterSet (2, 0, &set));
        EXPECT_EQ (download (opened, smallText()), kResultOk) << "after a silent " << row.message;
    }
}

TEST_F (Waits, ACancellationNeedsNoReply)
{
    auto& opened = open();
    setFaults ("lose DownloadCancelled 1");
    progress.onProgress = [] { return false; };
    EXPECT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_TRUE (opened.SetVolume (1.0f));
}

TEST_F (Waits, ARemovalThatIsNotAcknowledgedChangesNothing)
{
    auto& opened = open();
    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    setFaults ("lose RemoveFilter 1");
    EXPECT_FALSE (opened.RemoveFilterSet (set));
    EXPECT_TRUE (opened.GetFilterSet (1, 0, &set));
    EXPECT_TRUE (opened.RemoveFilterSet (set));
}

}
