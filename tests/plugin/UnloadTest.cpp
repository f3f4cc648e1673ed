/** @file
    The module comes and goes without a trace.
*/

#include "tests/plugin/HostModule.h"

#include <gtest/gtest.h>

namespace veltra::test {

namespace {

std::size_t countIn (const char* folder)
{
    std::size_t count = 0;

    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator (folder))
        ++count;

    return count;
}

std::size_t threads()   { return countIn ("/proc/self/task"); }
std::size_t openFiles() { return countIn ("/proc/self/fd"); }

}

TEST (Unload, AHundredTimesInOneProcess)
{
    const TemporaryFolder folder;
    const auto log = folder.path / "veltra.log";
    std::size_t threadsOfFirst = 0, filesOfFirst = 0;
    testing::internal::CaptureStderr();

    for (int round = 0; round < 100; ++round)
    {
        HostModule module;

        if (round % 2 == 0)
            module.setLogPath (log.c_str(), -1, 0);

        auto* const plugin = module.get (5);
        ASSERT_NE (plugin, nullptr);

        if (round % 3 != 0) // else it is left over
            module.release (plugin);

        module.unload();
        ASSERT_FALSE (HostModule::isLoaded (MODULE_FILE)) << "in round " << round;

        if (round == 0) // libraries below the module start threads of their own, once
        {
            threadsOfFirst = threads();
            filesOfFirst = openFiles();
        }
    }

    EXPECT_EQ (threads(), threadsOfFirst);
    EXPECT_EQ (openFiles(), filesOfFirst);
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");
}

}
