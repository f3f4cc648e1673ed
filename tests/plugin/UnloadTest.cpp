/** @file
    The module comes and goes without a trace.
*/

#include "tests/plugin/HostModule.h"

#include <thread>

#include <gtest/gtest.h>

#include "tools/receiver/Receiver.h"
#include "veltratune_io/Device.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

std::size_t countIn (const char* folder)
{
    std::size_t count = 0;

    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator (folder))
        ++count;

    return count;
}

std::size_t threads()   { return countIn ("/proc/self/task"); }
std::size_t openFiles() { return countIn ("/proc/self/fd"); }

/** A copy of the module that finds a receiver of this process. */
class Unload : public testing::Test
{
protected:
    Unload() : file (copyModule (folder.path))
    {
        writeFile (folder.path / "MorvaneVeltraIO.settings", settingsText ("Device", "TCP:" + receiver.address()));
    }

    bool allSessionsEnd() { return receiver.waitFor ([this] { return receiver.openSessions() == 0; }); }

    static Device2& device (Plugin& plugin, std::uint32_t index = 0)
    {
        Device* found = nullptr;
        EXPECT_TRUE (plugin.GetDevice (index, &found));
        return static_cast<Device2&> (*found);
    }

    const TemporaryFolder folder;
    const std::filesystem::path file;
    receiver::Receiver receiver { receiver::shippedProfile ("stereo") };
};

}

TEST_F (Unload, AHundredTimesInOneProcess)
{
    const auto log = folder.path / "veltra.log";
    std::size_t threadsOfFirst = 0, filesOfFirst = 0;
    testing::internal::CaptureStderr();

    for (int round = 0; round < 100; ++round)
    {
        HostModule module (file);

        if (round % 2 == 0)
            module.setLogPath (log.c_str(), -1, 0);

        auto* const plugin = module.get (kPluginInterfaceVersion);
        ASSERT_NE (plugin, nullptr);
        ASSERT_TRUE (plugin->FindDevices());
        EXPECT_TRUE (device (*plugin).SetVolume (0.5f));

        if (round % 3 != 0) // else it is left over
            module.release (plugin);

        module.unload();
        ASSERT_FALSE (HostModule::isLoaded (file)) << "in round " << round;
        ASSERT_TRUE (allSessionsEnd());

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

TEST_F (Unload, ObjectsThatAreLeftGoWithTheirConnections)
{
    HostModule module (file);
    auto* const first = module.get (kPluginInterfaceVersion);
    auto* const second = module.get (kPluginInterfaceVersion);
    ASSERT_TRUE (first->FindDevices());
    ASSERT_TRUE (first->FindDevices());
    ASSERT_TRUE (second->FindDevices());
    ASSERT_EQ (device (*first).EnterMeasurementMode (48000, 0, 2, nullptr), kResultOk);
    EXPECT_EQ (receiver.openSessions(), 3u);

    module.unload();
    EXPECT_FALSE (HostModule::isLoaded (file));
    EXPECT_TRUE (allSessionsEnd());
}

TEST_F (Unload, TwoObjectsWorkSideBySide)
{
    HostModule module (file);
    auto* const first = module.get (kPluginInterfaceVersion);
    auto* const second = module.get (kPluginInterfaceVersion);
    ASSERT_TRUE (first->FindDevices());
    ASSERT_TRUE (second->FindDevices());
    EXPECT_TRUE (device (*first).SetActiveFilterSlot (1));
    EXPECT_EQ (device (*second).GetActiveFilterSlot(), 1u);

    module.release (first);
    EXPECT_TRUE (receiver.waitFor ([this] { return receiver.openSessions() == 1; }));
    EXPECT_TRUE (device (*second).SetActiveFilterSlot (0)) << "releasing one leaves the other's session";
    module.release (second);
    EXPECT_TRUE (allSessionsEnd());
}

TEST_F (Unload, AReceiverThatWentFirstIsNoObstacle)
{
    HostModule module (file);
    auto* const plugin = module.get (kPluginInterfaceVersion);
    ASSERT_TRUE (plugin->FindDevices());
    receiver.endSessions (receiver::Session::Ending::close);
    EXPECT_TRUE (allSessionsEnd());
    module.unload();
    EXPECT_FALSE (HostModule::isLoaded (file));
}

}
