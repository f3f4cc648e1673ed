// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    How long each exchange waits for a receiver that says nothing, and connections that end before the first word.
*/

#include "tests/support/DeviceFixture.h"
#include "tests/support/Operations.h"

#include <chrono>
#include <future>
#include <memory>

#include "common/SettingKeys.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;
using Clock = std::chrono::steady_clock;

/** A host with a receiver that is silent about one thing. */
class Host : public DeviceFixture
{
public:
    Host()
    {
        log.reset(); // collects for the whole process
        settings[keys::kFilterDataChunkTimeout] = "700";
        settings[keys::kFilterDataChunkRetries] = "1";
    }

    void TestBody() override {}

    Device2& opened() { return device (0); }
    void losing (const std::string& fault) { setFaults ("lose " + fault + " *"); }

    void search() { find(); }
    void load() { download (opened()); }

    void loadAndCancel()
    {
        progress.onProgress = [] { return false; };
        load();
    }

    void remove()
    {
        FilterSet* set = nullptr;
        ASSERT_TRUE (opened().GetFilterSet (1, 0, &set));
        opened().RemoveFilterSet (set);
    }
};

struct Row
{
    std::string name;
    int wait_ms;
    std::string lost;
    std::function<void (Host&)> run;
    bool isOpened = true;
};

std::vector<Row> rows()
{
    std::vector<Row> all {
        { "ProtocolInfo", 1000, "GetProtocolInfo", &Host::search, false },
        { "Unit", 2000, "GetUnit", &Host::search, false },
        { "TopologyInfo", 2000, "GetTopologyInfo", &Host::search, false },
        { "StimulusInfo", 2000, "GetStimulusInfo", &Host::search, false },
        { "LoadFilter", 5000, "LoadFilter", &Host::load },
        { "FilterChannel", 1000, "FilterChannel", &Host::load },
        { "FilterData", 5000, "FilterData", &Host::load },
        { "FilterDataChunk", 700, "FilterDataChunk", &Host::load },
        { "DownloadCancelled", 3000, "DownloadCancelled", &Host::loadAndCancel },
        { "RemoveFilter", 2000, "RemoveFilter", &Host::remove },
    };
    const std::map<std::string, int> waits_ms { { "EnterMeasurementMode", 1000 },
                                                { "LeaveMeasurementMode", 1000 },
                                                { "StartStimulus", 2000 },
                                                { "StopStimulus", 2000 },
                                                { "IsStimulusPlaying", 500 },
                                                { "SetActiveFilterSlot", 1000 },
                                                { "GetActiveFilterSlot", 1000 },
                                                { "SetFiltering", 500 },
                                                { "GetFiltering", 500 },
                                                { "SetVolume", 500 },
                                                { "GetVolume", 500 },
                                                { "SetChannelAttenuation", 500 },
                                                { "GetChannelAttenuation", 500 } };

    for (const auto& operation : operations())
        all.push_back ({ operation.name, waits_ms.at (operation.name), operation.fault,
                         [&operation] (Host& host) { operation.run (host.opened()); } });

    return all;
}

}

TEST (TimeOuts, EachExchangeWaitsForItsOwnTimeAndNoLonger)
{
    const auto all = rows();
    std::vector<std::unique_ptr<Host>> hosts; // made and destroyed on this thread, since a test's base is for one
    std::vector<std::future<double>> times_ms;

    for (const auto& row : all)
    {
        auto& host = *hosts.emplace_back (std::make_unique<Host>());

        if (row.isOpened)
            host.search();

        host.losing (row.lost);
    }

    for (std::size_t i = 0; i < all.size(); ++i)
        times_ms.push_back (std::async (std::launch::async, [&host = *hosts[i], &row = all[i]] {
            const auto start = Clock::now();
            row.run (host);
            return std::chrono::duration<double, std::milli> (Clock::now() - start).count();
        }));

    // With room for a busy machine, but not for the next longer wait. The module counts whole milliseconds.
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        const auto time_ms = times_ms[i].get();
        EXPECT_GE (time_ms, all[i].wait_ms - 1) << all[i].name;
        EXPECT_LT (time_ms, all[i].wait_ms * 2 + 2000) << all[i].name;
    }
}

namespace {

class FirstMoment : public DeviceFixture,
                    public testing::WithParamInterface<std::pair<const char*, bool>>
{
};

}

TEST_P (FirstMoment, AConnectionThatBeginsBadlyCostsOneSearchAtMost)
{
    const auto& [fault, succeeds] = GetParam();
    setFaults (fault);
    const auto start = Clock::now();
    EXPECT_EQ (succeeds, find());
    EXPECT_LT (Clock::now() - start, std::chrono::seconds (10));
    EXPECT_TRUE (find());
    EXPECT_TRUE (device (succeeds ? 1 : 0).SetVolume (0.5f));
}

INSTANTIATE_TEST_SUITE_P (, FirstMoment,
                          testing::Values (std::pair ("close connect 1", false), std::pair ("reset connect 1", false),
                                           std::pair ("noise connect 1 3000", true),
                                           std::pair ("delay connect 1 500", true)));

}
