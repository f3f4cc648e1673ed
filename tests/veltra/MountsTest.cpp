// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Whole programs on file systems of their own: a full one, and one that no program may be run from.
*/

#include <sys/mount.h>

#include "tests/support/NetworkNamespace.h"
#include "tests/support/Program.h"
#include "tools/ExitStatus.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

class Mounts : public Program
{
protected:
    using Words = std::vector<std::string>;

    /** Runs something with a file system of its own at path ("disk"). */
    void withDisk (unsigned long flags, const char* options, const std::function<void()>& action)
    {
        fs::create_directory (disk);
        const bool mounted = NetworkNamespace::runWithOwnMounts ([&] {
            ASSERT_EQ (0, ::mount ("none", disk.c_str(), "tmpfs", flags, options));
            action();
        });

        if (mounted)
            return;

        ASSERT_FALSE (NetworkNamespace::required()) << "private mounts are required and not permitted here";
        GTEST_SKIP() << "private mounts are not permitted here";
    }

    const fs::path disk = path ("disk");
};

}

TEST_F (Mounts, OnAFullDiskEachProgramSaysSoAndLeavesNothing)
{
    ASSERT_EQ (kExitOk, run ({ VELTRA_PROGRAM, "import", "-o", path ("room.xml"), "examples/living-room/FL_48000.wav",
                               "examples/living-room/FR_48000.wav" })
                            .status);
    write ("profile", R"(
        protocolInfo { versionInfo: 8 messageLimit: 1400 }
        unit {
          manufacturer: "Example" name: "Two" capabilities: 10 maxChannelAttenuation_dB: 12
          devices {
            name: "Main"
            configurations { name: "Stereo" sampleRates: [44100, 48000] channels: [0, 1] defaultSampleRate: 48000 }
            filterSlots { isOccupied: false }
            outputChannels { name: "FL" type: Type_kLarge channelIndex: 0 }
            outputChannels { name: "FR" type: Type_kLarge channelIndex: 1 }
          }
        }
        topologyInfo {
          topologies { name: "FIR" sampleRate: 44100 information: "NbrOfFIRTaps=512" }
          topologies { name: "FIR" sampleRate: 48000 information: "NbrOfFIRTaps=8192" }
        }
        stimulusInfo {
          stimulusLatencyMilliseconds: 0
          stimulusInformation { stimulus: Stimulus_kNoise sampleRate: 48000 information: "Seconds=1;Level_dBFS=-20;Seed=1" }
        })");

    withDisk (0, "size=32k", [&] {
        ChildProcess receiver ({ VELTRA_RECEIVER_PROGRAM, "--profile", path ("profile"), "--folder", disk },
                               path ("heard"), path ("said"));
        waitFor ("heard", "\n");
        const auto line = read (path ("heard"));
        const auto address = line.substr (line.find ("127."), line.find ('\n') - line.find ("127."));
        const auto download =
            run ({ VELTRA_PROGRAM, "download", path ("room.xml"), "--slot", "0", "--device", address });
        EXPECT_EQ (kExitOk, download.status) << download.err << "the receiver's memory holds the slot";

        for (const Words& command : { Words { "measure", "--channel", "0", "--stimulus", "noise", "--device", address,
                                              "-o", disk / "heard.wav" },
                                      Words { "convert", path ("room.xml"), "--topology", "FIR", "--rate", "48000",
                                              "--taps", "16384", "-o", disk / "blob.bin" } })
        {
            auto words = command;
            words.insert (words.begin(), VELTRA_PROGRAM);
            const auto ending = run (words);
            EXPECT_EQ (kExitOutput, ending.status) << command[0] << ": " << ending.err;
            EXPECT_TRUE (ending.err.find ("cannot be written") != std::string::npos) << ending.err;
        }

        receiver.signal (SIGTERM);
        EXPECT_EQ (kExitOutput, WEXITSTATUS (receiver.wait()));
        EXPECT_TRUE (read (path ("heard")).find ("slot 0 name") != std::string::npos);

        const auto said = read (path ("said"));
        EXPECT_TRUE (said.find ("slot0_48000.bin cannot be written") != std::string::npos) << said;
        EXPECT_TRUE (said.ends_with ("Not every slot could be written to " + disk.string() + ".\n")) << said;
        EXPECT_TRUE (fs::is_empty (disk)) << "neither the first rate nor the text";
    });
}

TEST_F (Mounts, ATemporaryFolderThatNoProgramMayBeRunFromIsHintedAt)
{
    withDisk (MS_NOEXEC, "", [&] {
        const auto ending =
            run ({ "env", "TMPDIR=" + disk.string(), VELTRA_PROGRAM, "volume", "--device", "127.0.0.1:1" });
        EXPECT_EQ (kExitModule, ending.status);
        EXPECT_TRUE (ending.err.find ("(noexec); set TMPDIR") != std::string::npos) << ending.err;
        EXPECT_TRUE (fs::is_empty (disk));
    });
}

}
