// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Thousands of sessions with faults. What a session allocates must be free when it has ended.
*/

#include "common/SettingKeys.h"
#include "tests/reliability/CaptureCount.h"
#include "tests/support/DeviceFixture.h"

#include <filesystem>
#include <iostream>
#include <iterator>
#include <random>
#include <thread>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace veltra::test {

namespace {

using namespace veltratune_io;

// Sessions with faults mostly wait, so many hosts run at once.
constexpr unsigned kHostCount = 40;
constexpr unsigned kSessionsUntilSettled = 10; ///< of each host, until caches are filled
constexpr unsigned kSessionsAfterwards = 40;

struct Footprint
{
    std::size_t descriptors, threads;
    double allocated_MiB; ///< what is resident also depends on how well the allocator packs it

    static Footprint now()
    {
        const auto entries = [] (const char* folder) {
            return static_cast<std::size_t> (std::distance (std::filesystem::directory_iterator (folder), {}));
        };
        std::size_t allocated = 0;
#if defined(__GLIBC__) && ! defined(VELTRA_SANITIZED)
        const auto heap = mallinfo2();
        allocated = heap.uordblks + heap.hblkhd;
#endif
        return { entries ("/proc/self/fd"), entries ("/proc/self/task"),
                 static_cast<double> (allocated) / (1024.0 * 1024.0) };
    }
};

/** Faults that cost no long wait. */
const char* const faults[] = {
    "",
    "",
    "refuse * 5 'no'",
    "reset * 3",
    "reset FilterDataChunk 2 4",
    "close LoadFilter 1",
    "close * 6 7",
    "noise * * 50",
    "duplicate * *",
    "pieces * * 3",
    "lose FilterDataChunk 1",
    "wrong-checksum FilterDataChunk 1",
    "truncate FilterData 1 1",
    "wrong-length FilterDataChunk 1 9",
    "refuse FilterChannel 2 'no'",
    "reset AudioData 2",
    "limit * 4 30",
    "reset connect 1",
};

/** A host with a receiver of its own. */
class Host : public DeviceFixture
{
public:
    explicit Host (unsigned seed) : random (seed)
    {
        log.reset();
        options.recordedBytes = 4096;
        settings[keys::kFilterDataChunkTimeout] = "40";
        settings[keys::kFilterDataChunkRetries] = "1";
    }

    void TestBody() override {}

    /** Destroys the receiver, which frees a session only when the next one begins. */
    void leaveReceiver()
    {
        receiver = nullptr;
        settings.erase (keys::kDevice);
    }

    void session()
    {
        setFaults (faults[below (std::size (faults))]);

        if (find())
            for (auto actions = below (4); actions > 0; --actions)
                act (device (0));

        setFaults ("");
        receiver->setMessageLimit (0);
        end();
    }

    unsigned downloads = 0;

private:
    void end()
    {
        plugin = nullptr;
        receiver->waitFor ([this] { return receiver->openSessions() == 0; });
    }

    std::size_t below (std::size_t limit) { return std::uniform_int_distribution<std::size_t> (0, limit - 1) (random); }

    void act (Device2& opened)
    {
        switch (below (4))
        {
            case 0:
                remove (opened);
                downloads += download (opened, xml, 2) == kResultOk;
                break;

            case 1:
                opened.EnterMeasurementMode (48000, 0, 1, &ear);
                receiver->broadcast (packet());

                if (below (2) == 0)
                    opened.LeaveMeasurementMode();

                break;

            case 2:
                opened.SetVolume (0.5f);
                opened.GetFiltering();
                break;

            default: remove (opened);
        }
    }

    static void remove (Device2& opened)
    {
        FilterSet* set = nullptr;

        if (opened.GetFilterSet (2, 0, &set))
            opened.RemoveFilterSet (set);
    }

    static veltraio::AudioData packet()
    {
        veltraio::AudioData message;
        message.set_packetnumber (1);
        message.mutable_data()->Resize (512, 0.5f);
        return message;
    }

    std::mt19937 random;
    const std::string xml = description().text();
    CaptureCount ear;
};

void runSessions (const std::vector<std::unique_ptr<Host>>& hosts, unsigned count)
{
    std::vector<std::thread> threads;

    for (const auto& host : hosts)
        threads.emplace_back ([&host, count] {
            for (unsigned i = 0; i < count; ++i)
                host->session();

            host->leaveReceiver();
        });

    for (auto& thread : threads)
        thread.join();
}

}

TEST (Soak, DescriptorsThreadsAndMemoryStayAsTheyAre)
{
#ifdef __GLIBC__
    mallopt (M_ARENA_MAX, 1); // the one that mallinfo2 counts
#endif

    std::vector<std::unique_ptr<Host>> hosts;

    for (unsigned i = 0; i < kHostCount; ++i)
        hosts.push_back (std::make_unique<Host> (i));

    runSessions (hosts, kSessionsUntilSettled);
    const auto settled = Footprint::now();
    runSessions (hosts, kSessionsAfterwards);
    const auto last = Footprint::now();
    unsigned downloads = 0;

    for (const auto& host : hosts)
        downloads += host->downloads;

    constexpr unsigned sessions = kHostCount * (kSessionsUntilSettled + kSessionsAfterwards);
    std::cout << sessions << " sessions, " << downloads << " downloads; descriptors " << settled.descriptors << " -> "
              << last.descriptors << ", threads " << settled.threads << " -> " << last.threads << ", allocated MiB "
              << settled.allocated_MiB << " -> " << last.allocated_MiB << "\n";

    EXPECT_GT (downloads, sessions / 10);
    EXPECT_EQ (last.descriptors, settled.descriptors);
    EXPECT_EQ (last.threads, settled.threads);
    EXPECT_LT (last.allocated_MiB, settled.allocated_MiB + 0.5) << "half a kilobyte a session";
}

}
