// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <functional>
#include <thread>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/NetworkNamespace.h"
#include "tests/support/Program.h"
#include "tools/ExitStatus.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

constexpr const char* kRoom = "examples/living-room/FL_48000.wav";

class Output : public Program
{
protected:
    using Words = std::vector<std::string>;

    Output() { fs::create_directory (path ("tmp")); }

    /** An import of a sample response, about 200 kB of text. */
    Words importTo (const std::string& target, bool force = false) const
    {
        Words words { "env", "TMPDIR=" + path ("tmp").string(), VELTRA_PROGRAM, "import", kRoom, "-o", target };

        if (force)
            words.push_back ("--force");

        return words;
    }

    static void expectOutputFailure (const Ending& ending)
    {
        EXPECT_EQ (kExitOutput, ending.status) << ending.err;
        EXPECT_EQ (1, std::ranges::count (ending.err, '\n')) << ending.err;
    }

    static std::ptrdiff_t filesIn (const fs::path& place)
    {
        return std::distance (fs::directory_iterator (place), fs::directory_iterator());
    }

    /** Waits for something that other processes do; fails the test after 30 s. */
    static void waitUntil (const std::function<bool()>& condition)
    {
        for (int i = 0; i < 1500 && ! condition(); ++i)
            std::this_thread::sleep_for (std::chrono::milliseconds (20));

        EXPECT_TRUE (condition());
    }
};

std::string modeOf (const fs::path& file)
{
    struct stat status = {};
    ::stat (file.c_str(), &status);
    return std::to_string (status.st_uid) + " " + std::to_string (status.st_mode & 07777);
}

}

TEST_F (Output, IsWrittenThroughLinksDevicesAndPipesAndKeepsModeAndOwner)
{
    const auto target = path ("room.xml");
    run ({ "sh", "-c", "umask 027; exec \"$0\" \"$@\"", VELTRA_PROGRAM, "import", kRoom, "-o", target });
    const auto text = read (target);
    EXPECT_GT (text.size(), 100000u);
    EXPECT_EQ (std::to_string (::geteuid()) + " " + std::to_string (0640), modeOf (target));

    // A temporary name that can be guessed would hit this file.
    write ("room.xml.part", "mine");
    write ("room.xml", "old");
    ::chmod (target.c_str(), 0604);
    [[maybe_unused]] const int other = ::chown (target.c_str(), 1234, 0); // fails for those who are not root
    const auto mode = modeOf (target);
    fs::create_symlink ("room.xml", path ("link"));
    EXPECT_EQ (kExitOutput, run (importTo (path ("link"))).status);
    EXPECT_EQ (kExitOk, run (importTo (path ("link"), true)).status);
    EXPECT_TRUE (fs::is_symlink (path ("link")));
    EXPECT_EQ (text.size(), read (target).size());
    EXPECT_EQ (mode, modeOf (target));
    EXPECT_EQ ("mine", read (path ("room.xml.part")));

    fs::create_symlink ("new.xml", path ("dangling"));
    EXPECT_EQ (kExitOk, run (importTo (path ("dangling"))).status);
    EXPECT_TRUE (fs::is_symlink (path ("dangling")) && fs::is_regular_file (path ("new.xml")));

    fs::create_symlink ("/dev/full", path ("full"));
    expectOutputFailure (run (importTo (path ("full"), true)));
    EXPECT_TRUE (fs::is_symlink (path ("full")) && fs::is_character_file (path ("full")));
    expectOutputFailure (run (importTo (path ("no/folder/room.xml"))));
    EXPECT_FALSE (fs::exists (path ("no")));
    expectOutputFailure (run (importTo (path ("tmp"), true)));

    ::mkfifo (path ("fifo").c_str(), 0600);
    std::string received;
    std::thread reader ([&] { received = read (path ("fifo")); });
    EXPECT_EQ (kExitOk, run (importTo (path ("fifo"))).status);
    reader.join();
    EXPECT_EQ (text.size(), received.size()); // the project's name, made from the file's, is as long
    EXPECT_TRUE (fs::is_fifo (path ("fifo")));

    for (const std::string name : { "-", "/dev/stdout" })
    {
        const auto ending = run (importTo (name, true));
        EXPECT_EQ (kExitOk, ending.status);
        EXPECT_TRUE (ending.out.starts_with ("<?xml") && ending.out.ends_with ("</Veltra>\n")) << name;
        EXPECT_NE (std::string::npos, ending.err.find ("16384 samples")) << name;
    }

    EXPECT_EQ (0, filesIn (path ("tmp")));
}

TEST_F (Output, AFullDiskIsNoticedAndNothingIsLeftBehind)
{
    const auto withOutput = [this] (const std::string& device) {
        return run ({ "sh", "-c", "exec \"$0\" --help >" + device, VELTRA_PROGRAM });
    };
    EXPECT_EQ (kExitOk, withOutput ("/dev/null").status);
    expectOutputFailure (withOutput ("/dev/full"));

    ASSERT_EQ (kExitOk, run (importTo (path ("room.xml"))).status);
    const auto disk = path ("disk");
    fs::create_directory (disk);

    const auto convert = [&] (Words options) {
        Words words { VELTRA_PROGRAM, "convert", path ("room.xml"), "--topology", "VLFIR2", "--rate", "48000", "--taps",
                      "1024",         "-o",      path ("blob"),     "--force" };
        words.insert (words.end(), options.begin(), options.end());
        return run (words);
    };

    const bool mounted = NetworkNamespace::runWithOwnMounts ([&] {
        ASSERT_EQ (0, ::mount ("none", disk.c_str(), "tmpfs", 0, "size=16k"));
        expectOutputFailure (run (importTo (disk / "room.xml")));
        expectOutputFailure (convert ({ "--plot", disk / "picture.svg" }));
        EXPECT_EQ (0, filesIn (disk));

        expectOutputFailure (convert ({ "--dump", disk / "dump" }));
        EXPECT_LT (filesIn (disk / "dump"), 4);
        fs::remove_all (disk / "dump");
    });

    if (! mounted)
    {
        ASSERT_FALSE (NetworkNamespace::required()) << "private mounts are required and not permitted here";
        GTEST_SKIP() << "private mounts are not permitted here";
    }
}

TEST_F (Output, APipeWithoutAReaderDoesNotKeepASignalOutAndAKilledRunIsClearedAway)
{
    ::mkfifo (path ("fifo").c_str(), 0600);
    ::mkfifo (path ("other").c_str(), 0600);
    const auto blocked = [this] (std::ptrdiff_t count) {
        std::ptrdiff_t found = 0;

        for (const auto& entry : fs::directory_iterator (path ("tmp")))
            found += fs::exists (entry.path() / "output") ? 1 : 0;

        return found == count;
    };

    start (importTo (path ("fifo")));
    waitUntil ([&] { return blocked (1); });
    sendSignal (SIGTERM);
    EXPECT_EQ (SIGTERM, finish().signal);
    EXPECT_EQ (0, filesIn (path ("tmp")));

    start (importTo (path ("fifo")));
    waitUntil ([&] { return blocked (1); });
    const ChildProcess alive (importTo (path ("other")));
    waitUntil ([&] { return blocked (2); });
    sendSignal (SIGKILL);
    EXPECT_EQ (SIGKILL, finish().signal);
    fs::create_directory (path ("tmp/veltra-tmp-shared"));
    fs::permissions (path ("tmp/veltra-tmp-shared"), fs::perms::all);
    EXPECT_EQ (3, filesIn (path ("tmp")));

    EXPECT_EQ (kExitOk, run (importTo ("-")).status);
    EXPECT_EQ (2, filesIn (path ("tmp"))) << "the folder of the killed run goes, that of the live one stays";
    EXPECT_TRUE (fs::exists (path ("tmp/veltra-tmp-shared"))) << "not a private folder";
}

}
