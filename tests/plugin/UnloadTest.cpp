// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The module comes and goes without a trace.
*/

#include "tests/plugin/HostModule.h"

#include <thread>

#include <gtest/gtest.h>

#include "common/SettingKeys.h"
#include "tools/receiver/network/Receiver.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

std::ptrdiff_t entriesIn (const char* folder)
{
    return std::distance (std::filesystem::directory_iterator (folder), {});
}
std::ptrdiff_t threads() { return entriesIn ("/proc/self/task"); }
std::ptrdiff_t openFiles() { return entriesIn ("/proc/self/fd"); }

/** A copy of the module that finds a receiver of this process. */
class Unload : public testing::Test
{
protected:
    bool sessionsAre (std::uint32_t count)
    {
        return receiver.waitFor ([=, this] { return receiver.openSessions() == count; });
    }

    receiver::Receiver receiver { receiver::shippedProfile ("stereo") };
    const host::ModuleCopy copy { MODULE_FILE, { { keys::kDevice, "TCP:" + receiver.address() } } };
    const std::filesystem::path file = copy.path();
};

}

TEST_F (Unload, AHundredTimesInOneProcess)
{
    const auto log = file.parent_path() / "veltra.log";
    std::ptrdiff_t threadsOfFirst = 0, filesOfFirst = 0;
    testing::internal::CaptureStderr();

    for (int round = 0; round < 100; ++round)
    {
        HostModule module (file);

        if (round % 2 == 0)
            module.setLogPath (log.c_str(), -1, 0);

        auto* const plugin = module.get (kPluginInterfaceVersion);
        ASSERT_TRUE (plugin->FindDevices());
        EXPECT_TRUE (HostModule::device (*plugin).SetVolume (0.5f));

        if (round % 3 != 0) // else it is left over
            module.release (plugin);

        module.unload();
        ASSERT_FALSE (HostModule::isLoaded (file)) << "in round " << round;
        ASSERT_TRUE (sessionsAre (0));

        if (round == 0) // libraries below the module may start threads of their own, once
        {
            threadsOfFirst = threads();
            filesOfFirst = openFiles();
        }
    }

    // The receiver's own threads for its last session may be on their way out.
    for (int i = 0; i < 1000 && (threads() > threadsOfFirst || openFiles() > filesOfFirst); ++i)
        std::this_thread::sleep_for (std::chrono::milliseconds (5));

    EXPECT_LE (threads(), threadsOfFirst);
    EXPECT_LE (openFiles(), filesOfFirst);
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");
}

TEST_F (Unload, TwoObjectsWorkSideBySideAndGoWithTheirConnections)
{
    HostModule module (file);
    auto* const first = module.get (kPluginInterfaceVersion);
    auto* const second = module.get (kPluginInterfaceVersion);
    ASSERT_TRUE (first->FindDevices() && first->FindDevices() && second->FindDevices());
    EXPECT_TRUE (sessionsAre (3));
    EXPECT_TRUE (HostModule::device (*first).SetActiveFilterSlot (1));
    EXPECT_EQ (HostModule::device (*second).GetActiveFilterSlot(), 1u);

    module.release (first);
    EXPECT_TRUE (sessionsAre (1));
    EXPECT_TRUE (HostModule::device (*second).SetActiveFilterSlot (0)) << "the other's session goes on";

    // One session is left with its capture, one has ended on the other side.
    ASSERT_EQ (HostModule::device (*second).EnterMeasurementMode (48000, 0, 2, nullptr), kResultOk);
    auto* const third = module.get (kPluginInterfaceVersion);
    receiver.endSessions (receiver::HostSession::Ending::close);
    EXPECT_TRUE (sessionsAre (0));
    ASSERT_TRUE (third->FindDevices());
    module.unload();
    EXPECT_FALSE (HostModule::isLoaded (file));
    EXPECT_TRUE (sessionsAre (0));
}

/** The objects go while the program's static objects do. */
TEST_F (Unload, AProcessThatEndsWithoutReleaseEndsWell)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP()
        << "the process ends without the simulated receiver's destructor, which counts as a leak of its threads";
#endif

    GTEST_FLAG_SET (death_test_style, "threadsafe");
    EXPECT_EXIT (
        {
            const HostModule module (file);
            module.setLogPath ((file.parent_path() / "veltra.log").c_str(), -1, 0);
            const bool isOpen = module.get (kPluginInterfaceVersion)->FindDevices();
            Transient::removeAllForGood();
            std::exit (isOpen ? 0 : 1);
        },
        testing::ExitedWithCode (0), "^$");
}

}
