// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Objects that are destroyed while they are in use, and a process with many open files.
*/

#include "tests/reliability/CaptureCount.h"
#include "tests/support/DeviceFixture.h"

#include <atomic>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Lifetime : public DeviceFixture
{
};

}

TEST_F (Lifetime, AnObjectMayGoWhilePacketsArrive)
{
    setFaults ("refuse OperationModeInfo *\nanswer OperationModeInfo * Acknowledge 'ok: true'");
    veltraio::AudioData packet;
    packet.set_packetnumber (1);
    packet.mutable_data()->Resize (512, 0.5f);

    for (int round = 0; round < 20; ++round)
    {
        auto& opened = open();
        std::atomic<bool> enough { false };
        std::thread microphone ([&] {
            while (! enough)
                receiver->broadcast (packet);
        });
        CaptureCount counter;
        EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &counter), kResultOk);

        while (counter.packets == 0)
            std::this_thread::yield();

        plugin = nullptr;
        const auto heard = counter.packets.load();
        std::this_thread::sleep_for (std::chrono::milliseconds (5));
        EXPECT_EQ (counter.packets, heard) << "the callback may be deleted once its device has gone";
        enough = true;
        microphone.join();
    }
}

/** A descriptor beyond 1023 does not fit into the sets of select. */
TEST_F (Lifetime, AHostMayHaveMoreThanAThousandFilesOpen)
{
    rlimit limit {};
    ASSERT_EQ (getrlimit (RLIMIT_NOFILE, &limit), 0);
    const auto before = limit;
    limit.rlim_cur = std::min<rlim_t> (4096, limit.rlim_max);

    if (setrlimit (RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < 2048)
        GTEST_SKIP() << "so many descriptors are not permitted here";

    std::vector<int> files;

    for (int i = 0; i < 1100; ++i)
        files.push_back (::open ("/dev/null", O_RDONLY));

    EXPECT_GT (files.back(), 1023);
    auto& opened = open();
    EXPECT_EQ (download (opened), kResultOk);
    EXPECT_TRUE (opened.SetVolume (0.5f));
    plugin = nullptr;

    for (const int file : files)
        ::close (file);

    setrlimit (RLIMIT_NOFILE, &before);
}

}
