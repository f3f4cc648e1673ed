/** @file
    The log file of the built module, and its silence without one.
*/

#include "tests/plugin/HostModule.h"

#include <regex>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veltra::test {

namespace {

constexpr int kDebug = 10000;
constexpr int kInfo = 20000;
constexpr int kWarn = 30000;
constexpr int kOff = 60000;

const std::string kSettingLine = "Device is specified as TCP:127.0.0.1:1, skipping UPnP search";

const std::string kConnectingLine = "Connecting to device @ 'TCP:127.0.0.1:1'...";
const std::string kFailedLine = "Connection to device @ 'TCP:127.0.0.1:1' failed";

/** A copy of the module whose settings name an address at which nobody listens. */
class LogFile : public testing::Test
{
protected:
    LogFile()
    {
        writeFile (folder.path / "MorvaneVeltraIO.settings", settingsText ("Device", "TCP:127.0.0.1:1"));
        module = std::make_unique<HostModule> (copyModule (folder.path));
    }

    void start (const std::filesystem::path& path, int level) { module->setLogPath (path.c_str(), -1, level); }

    /** One session, which writes known lines. */
    void search()
    {
        auto* const plugin = module->get (5);
        plugin->FindDevices();
        module->release (plugin);
    }

    const TemporaryFolder folder;
    const std::filesystem::path log = folder.path / "logs" / "deep" / "veltra.log";
    std::unique_ptr<HostModule> module;
};

bool contains (const std::string& text, const std::string& part) { return text.find (part) != text.npos; }

}

TEST_F (LogFile, EachLineHasTheTimeAndTheText)
{
    start (log, kDebug);
    search();

    const auto text = readFile (log);
    const std::regex line (R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] [^\n]+\n)");
    auto rest = text.cbegin();
    std::smatch match;

    for (; std::regex_search (rest, text.cend(), match, line, std::regex_constants::match_continuous);)
        rest = match[0].second;

    EXPECT_EQ (rest, text.cend()) << text;
    EXPECT_TRUE (contains (text, "] " + kSettingLine + "\n")) << text;
    EXPECT_TRUE (contains (text, "] " + kConnectingLine + "\n")) << text;
    EXPECT_TRUE (contains (text, "] " + kFailedLine + "\n")) << text;
}

TEST_F (LogFile, TheLevelIsTheHostsChoice)
{
    start (log, kWarn);
    search();
    EXPECT_FALSE (contains (readFile (log), kSettingLine));
    EXPECT_TRUE (contains (readFile (log), kFailedLine));

    std::filesystem::remove (log);
    start (log, kOff);
    search();
    EXPECT_EQ (readFile (log), "");
}

TEST_F (LogFile, StaysAtItsPathAndIsAppendedToByTheNextSession)
{
    writeFile (folder.path / "veltra.log", "a line of yesterday\n");
    start (folder.path / "veltra.log", kInfo);
    search();
    start (folder.path / "veltra.log", kInfo);
    search();
    module->unload();

    const auto text = readFile (folder.path / "veltra.log");
    EXPECT_TRUE (text.starts_with ("a line of yesterday\n")) << text;
    const auto first = text.find (kSettingLine);
    EXPECT_NE (text.find (kSettingLine, first + 1), text.npos) << text;

    for (const auto& entry : std::filesystem::directory_iterator (folder.path))
        EXPECT_FALSE (entry.path().filename().string().starts_with ("veltra.log.")) << entry.path();
}

TEST_F (LogFile, AnyReleaseEndsIt)
{
    auto* const plugin = module->get (5);
    start (log, kInfo);
    module->release (nullptr);
    plugin->FindDevices();
    const auto before = readFile (log);
    EXPECT_TRUE (contains (before, kSettingLine)) << "releasing nothing leaves the log running";

    int stranger = 0;
    module->release (reinterpret_cast<veltratune_io::Plugin*> (&stranger));
    plugin->FindDevices();
    EXPECT_EQ (readFile (log), before);

    start (log, kInfo);
    plugin->FindDevices();
    EXPECT_GT (readFile (log).size(), before.size()) << "and it can be started again";
    module->release (plugin);
}

TEST_F (LogFile, ASecondPathAddsASecondFile)
{
    start (log, kInfo);
    start (folder.path / "second.log", kInfo);
    search();
    EXPECT_TRUE (contains (readFile (log), kSettingLine));
    EXPECT_EQ (readFile (folder.path / "second.log"), readFile (log));
}

TEST_F (LogFile, APathThatCannotBeAFileIsRefusedInSilence)
{
    const auto fifo = folder.path / "pipe";
    ASSERT_EQ (mkfifo (fifo.c_str(), 0600), 0);
    writeFile (folder.path / "file", "");

    testing::internal::CaptureStderr();
    start (folder.path, kDebug);           // a folder
    start (fifo, kDebug);                  // would block
    start (folder.path / "file/x", kDebug); // a folder that cannot be made
    start ("/proc/version", kDebug);       // cannot be written
    start ("", kDebug);
    start ("\xFF\xFE.log", kDebug);
    module->setLogPath (nullptr, -1, kDebug);
    module->setLogPath (log.c_str(), 0, kDebug);
    module->setLogPath (log.c_str(), -2, kDebug);
    search();
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");

    EXPECT_FALSE (std::filesystem::exists (log));
    EXPECT_TRUE (std::filesystem::is_directory (folder.path));
}

TEST_F (LogFile, TheLengthBoundsThePath)
{
    const auto text = log.string() + "and what follows";
    module->setLogPath (text.c_str(), static_cast<std::int32_t> (log.string().size()), kInfo);
    search();
    EXPECT_TRUE (contains (readFile (log), kSettingLine));

    const auto withEndMark = (folder.path / "second.log").string();
    module->setLogPath (withEndMark.c_str(), static_cast<std::int32_t> (withEndMark.size() + 1), kInfo);
    search();
    EXPECT_TRUE (contains (readFile (withEndMark), kSettingLine));
}

TEST_F (LogFile, NobodyWhoAskedForNoneHearsAnything)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    search();
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ (testing::internal::GetCapturedStdout(), "");
}

/** The settings are read from beside the module, wherever the host stands by then. */
TEST_F (LogFile, AModuleLoadedByARelativePathFindsItsSettingsLater)
{
    const TemporaryFolder other;
    writeFile (other.path / "MorvaneVeltraIO.settings", settingsText ("Device", "TCP:127.0.0.1:1"));
    copyModule (other.path);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path (other.path);
    module = std::make_unique<HostModule> ("./MorvaneVeltraIO.so");
    std::filesystem::current_path (before);

    start (log, kInfo);
    search();
    EXPECT_TRUE (contains (readFile (log), kSettingLine)) << readFile (log);
}

}
