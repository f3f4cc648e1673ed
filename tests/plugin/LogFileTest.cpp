// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The log file of the built module, and its silence without one.
*/

#include "tests/plugin/HostModule.h"

#include <csignal>
#include <cstring>
#include <regex>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/SettingKeys.h"
#include "tests/support/Scratch.h"

namespace veltra::test {

namespace {

constexpr int kDebug = 10000;
constexpr int kInfo = 20000;
constexpr int kWarn = 30000;
constexpr int kOff = 60000;

// What a search leaves in the log at INFO, DEBUG and WARN.
const std::string kSettingLine = "] Device is specified as TCP:127.0.0.1:1, skipping UPnP search\n";
const std::string kConnectingLine = "] Connecting to device @ 'TCP:127.0.0.1:1'...\n";
const std::string kFailedLine = "] Connection to device @ 'TCP:127.0.0.1:1' failed\n";

/** A copy of the module whose settings name an address without a listener. */
class LogFile : public host::ScratchTest
{
protected:
    void start (const std::filesystem::path& file, int level) { module.setLogPath (file.c_str(), -1, level); }

    /** One session, which writes known lines. */
    void search (const HostModule& from)
    {
        auto* const plugin = from.get (5);
        plugin->FindDevices();
        from.release (plugin);
    }

    void search() { search (module); }

    bool logHas (const std::string& line) const { return read (log).find (line) != std::string::npos; }

    const std::filesystem::path log = path ("logs/deep/veltra.log");
    const host::ModuleCopy copy { MODULE_FILE, { { keys::kDevice, "TCP:127.0.0.1:1" } } };
    HostModule module { copy.path() };
};

}

TEST_F (LogFile, EachLineHasTheTimeAndTheTextAndTheLevelIsTheHostsChoice)
{
    start (log, kDebug);
    search();
    EXPECT_TRUE (
        std::regex_match (read (log), std::regex (R"((\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] [^\n]+\n){4,})")));
    EXPECT_TRUE (logHas (kSettingLine) && logHas (kConnectingLine) && logHas (kFailedLine));

    std::filesystem::remove (log);
    start (log, kWarn);
    search();
    EXPECT_FALSE (logHas (kSettingLine));
    EXPECT_TRUE (logHas (kFailedLine));

    std::filesystem::remove (log);
    start (log, kOff);
    search();
    EXPECT_EQ (read (log), "");

    // The length bounds the path; it may count the end mark in.
    const auto size = static_cast<std::int32_t> (log.string().size());

    for (const auto& [name, length] :
         { std::pair (log.string() + "and what follows", size), { log.string(), size + 1 } })
    {
        std::filesystem::remove (log);
        module.setLogPath (name.c_str(), length, kInfo);
        search();
        EXPECT_TRUE (logHas (kSettingLine));
    }
}

TEST_F (LogFile, StaysAtItsPathAndIsAppendedToByTheNextSession)
{
    for (int session = 0; session < 2; ++session)
    {
        start (log, kInfo);
        search();
    }

    module.unload();
    const auto text = read (log);
    EXPECT_NE (text.find (kSettingLine), text.rfind (kSettingLine)) << text;
    EXPECT_EQ (std::distance (std::filesystem::directory_iterator (log.parent_path()), {}), 1) << "nothing beside it";
}

TEST_F (LogFile, AnyReleaseEndsItAndASecondPathAddsASecondFile)
{
    auto* const plugin = module.get (5);
    start (log, kInfo);
    start (path ("second.log"), kInfo);
    module.release (nullptr); // leaves the log running
    plugin->FindDevices();
    const auto before = read (log);
    EXPECT_TRUE (logHas (kSettingLine));
    EXPECT_EQ (read (path ("second.log")), before);

    int stranger = 0;
    module.release (reinterpret_cast<veltratune_io::Plugin*> (&stranger));
    plugin->FindDevices();
    EXPECT_EQ (read (log), before);

    start (log, kInfo);
    plugin->FindDevices();
    EXPECT_GT (read (log).size(), before.size()) << "it can be started again";
    module.release (plugin);
}

TEST_F (LogFile, WithoutOneAndWithAPathThatCannotBeOneThereIsSilence)
{
    const auto pipe = path ("pipe");
    ASSERT_EQ (mkfifo (pipe.c_str(), 0600), 0);
    write ("file", "");

    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    search();
    start (folder.path(), kDebug);   // a folder
    start (pipe, kDebug);            // has no reader
    start (path ("file/x"), kDebug); // a folder that cannot be made
    start ("/proc/version", kDebug); // cannot be written
    start ("", kDebug);
    start ("\xFF\xFE.log", kDebug);
    module.setLogPath (nullptr, -1, kDebug);
    module.setLogPath (log.c_str(), 0, kDebug);
    module.setLogPath (log.c_str(), -2, kDebug);
    search();
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ (testing::internal::GetCapturedStdout(), "");
    EXPECT_FALSE (std::filesystem::exists (log));
    EXPECT_TRUE (std::filesystem::is_directory (folder.path()));
}

TEST_F (LogFile, GoesOnWhenTheDiskHasRoomAgainAndWritesToAPipeUntilItsReaderGoes)
{
    auto* const plugin = module.get (5);
    start (log, kInfo);
    plugin->FindDevices();

    // A limit for files is met as the end of a disk is: a part of a line is taken, and then nothing.
    const auto before = ::signal (SIGXFSZ, SIG_IGN);
    rlimit limit {};
    ASSERT_EQ (0, ::getrlimit (RLIMIT_FSIZE, &limit));
    const rlimit full { std::filesystem::file_size (log) + 10, limit.rlim_max };
    ASSERT_EQ (0, ::setrlimit (RLIMIT_FSIZE, &full));
    plugin->FindDevices();
    EXPECT_EQ (full.rlim_cur, std::filesystem::file_size (log));
    ASSERT_EQ (0, ::setrlimit (RLIMIT_FSIZE, &limit));
    ::signal (SIGXFSZ, before);
    plugin->FindDevices();
    EXPECT_TRUE (std::regex_search (read (log), std::regex (R"(\n\[[^\n]{9}\n\[[^\n]* skipping UPnP search\n)")))
        << read (log);

    const auto pipe = path ("pipe");
    ASSERT_EQ (0, mkfifo (pipe.c_str(), 0600));
    const int reader = ::open (pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    start (pipe, kInfo);
    plugin->FindDevices();
    char bytes[4096] {};
    EXPECT_GT (::read (reader, bytes, sizeof (bytes) - 1), 0);
    EXPECT_NE (nullptr, std::strstr (bytes, kSettingLine.c_str()));
    ::close (reader);
    plugin->FindDevices(); // no signal ends the process
    module.release (plugin);
}

/** The settings are read from beside the module, whatever the current folder is by then. */
TEST_F (LogFile, AModuleLoadedByARelativePathFindsItsSettingsLater)
{
    const host::ModuleCopy other (MODULE_FILE, { { keys::kDevice, "TCP:127.0.0.1:1" } });
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path (other.path().parent_path());
    const HostModule relative ("./" + other.path().filename().string());
    std::filesystem::current_path (before);

    relative.setLogPath (log.c_str(), -1, kInfo);
    search (relative);
    EXPECT_TRUE (logHas (kSettingLine)) << read (log);
}

}
