// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <tuple>

#include <pty.h>
#include <unistd.h>

#include "tests/support/Scratch.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/session/ChannelName.h"
#include "tools/veltra/session/DeviceSession.h"
#include "tools/veltra/session/ModuleFile.h"
#include "tools/veltra/terminal/Progress.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

TEST (ChannelText, MarksAreReadFromTheEndAndNamesStayWhole)
{
    const auto check = [] (const char* text, const char* name, std::uint32_t number, bool subwoofer, bool takesFilter) {
        const auto channel = channelFromText (text);
        EXPECT_EQ (std::tie (channel.name, channel.number, channel.subwoofer, channel.takesFilter),
                   std::make_tuple (std::string (name), number, subwoofer, takesFilter))
            << text;
    };

    check ("FL#IDX00", "FL", 0, false, true);
    check ("SW#SUB#IDX0b#NOEQ", "SW", 11, true, false);
    check ("Front #2#IDX1f", "Front #2", 31, false, true);
    check ("#SUB#SUB#IDX2c", "#SUB", 44, true, true);
    check ("#IDX05", "", 5, false, true);
    check ("a#IDX01#IDX02", "a#IDX01", 2, false, true);
    check ("plain", "plain", 0, false, true);
    check ("bad#IDXzz#NOEQ", "bad#IDXzz#NOEQ", 0, false, true);
    check ("", "", 0, false, true);
}

TEST (DeviceAddress, HostAndPortBecomeTheSetting)
{
    EXPECT_EQ ("TCP:127.0.0.1:6000", deviceSetting ("127.0.0.1:6000"));
    EXPECT_EQ ("TCP:receiver.local:65535", deviceSetting ("TCP:receiver.local:65535"));

    for (const char* const text : { "", "receiver", "receiver:", ":6000", "receiver:0", "receiver:65536", "receiver:6x",
                                    "TCP:receiver", "receiver:-1" })
        EXPECT_THROW (deviceSetting (text), Failure) << text;
}

class Module : public ScratchTest
{
};

TEST_F (Module, IsFoundWhereTheUserSaysElseBesideTheProgramElseInTheLibraryFolder)
{
    fs::create_directories (path ("tree/bin"));
    fs::create_directories (path ("tree/lib"));
    const auto bin = path ("tree/bin");
    EXPECT_THROW (findModule ({}, bin), Failure);

    write (std::string ("tree/lib/") + moduleFileName(), "library");
    EXPECT_EQ (fs::canonical (path ("tree/lib")) / moduleFileName(), findModule ({}, bin));

    write (std::string ("tree/bin/") + moduleFileName(), "beside");
    EXPECT_EQ (fs::canonical (bin) / moduleFileName(), findModule ({}, bin));

    write ("my.so", "mine");
    EXPECT_EQ (path ("my.so"), findModule (path ("my.so"), bin));
    EXPECT_THROW (findModule (path ("other.so"), bin), Failure);
    EXPECT_THROW (findModule (path ("tree"), bin), Failure);
}

TEST_F (Module, IsCopiedNotLinkedIntoAPrivateFolderWithItsSettings)
{
    write ("real.so", "code");
    fs::create_symlink (path ("real.so"), path ("Linked.so"));
    fs::path copied;

    {
        const ModuleCopy copy (path ("Linked.so"), { { "Device", "TCP:a:1" }, { "BlobPath", "a<&>\"'b" } });
        copied = copy.path();

        EXPECT_EQ ("Linked.so", copied.filename());
        EXPECT_TRUE (fs::is_regular_file (fs::symlink_status (copied)));
        EXPECT_EQ ("code", read (copied));
        EXPECT_EQ (fs::perms::owner_all, fs::status (copied.parent_path()).permissions());
        EXPECT_EQ ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<PROPERTIES>\n"
                   "  <VALUE name=\"BlobPath\" val=\"a&lt;&amp;&gt;&quot;&apos;b\"/>\n"
                   "  <VALUE name=\"Device\" val=\"TCP:a:1\"/>\n</PROPERTIES>\n",
                   read (copied.parent_path() / "Linked.settings"));
    }

    EXPECT_FALSE (fs::exists (copied.parent_path()));
    EXPECT_EQ ("code", read (path ("real.so")));
}

using ProgressShown = ScratchTest;

TEST_F (ProgressShown, OnATerminalOneLineIsRedrawnAndEnded)
{
    {
        const std::unique_ptr<std::FILE, decltype (&std::fclose)> file (std::fopen (path ("shown").c_str(), "w"),
                                                                        std::fclose);
        Progress progress (file.get(), true);

        for (const double fraction : { -1.0, 0.0001, 0.5, std::numeric_limits<double>::quiet_NaN(), 2.0 })
            progress.show (fraction, [] { return "text"; });
    }

    const auto text = read (path ("shown"));
    EXPECT_EQ (4, std::ranges::count (text, '\r')) << text; // 0, 0.5, 0 and 1
    EXPECT_EQ (1, std::ranges::count (text, '\n')) << text;
    EXPECT_TRUE (text.ends_with ("[##############################] 100 %  text\n")) << text;
}

/** A line that is longer than the terminal's would stay and be drawn again below itself. */
TEST_F (ProgressShown, IsCutToTheTerminalsWidthAndSilentElsewhere)
{
    int ends[2];
    struct winsize size = {};
    size.ws_col = 40;
    ASSERT_EQ (0, ::openpty (&ends[0], &ends[1], nullptr, nullptr, &size));
    {
        const std::unique_ptr<std::FILE, decltype (&std::fclose)> terminal (::fdopen (ends[1], "w"), std::fclose);
        StatusLine line (terminal.get(), isWatched (terminal.get()));
        line.show ("\u00e4" + std::string (60, 'x'));
        line.show ("short");
        StatusLine (stdout, false).show ("nothing of this");
    }

    std::string shown; // a terminal hands on what it has in pieces
    char piece[512];

    for (::ssize_t count = 0; (count = ::read (ends[0], piece, sizeof (piece))) > 0;)
        shown.append (piece, static_cast<std::size_t> (count));

    ::close (ends[0]);
    EXPECT_EQ ("\r\u00e4" + std::string (38, 'x') + "\rshort" + std::string (34, ' ') + "\r\n", shown);
}

}

}
