// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/Program.h"
#include "tests/receiver/TestHost.h"

namespace veltra::receiver {
namespace {

class ReceiverProgram : public host::Program
{
protected:
    void startReceiver (std::vector<std::string> arguments)
    {
        arguments.insert (arguments.begin(), VELTRA_RECEIVER_PROGRAM);
        start (arguments);
    }
};

TEST_F (ReceiverProgram, PrintsItsPortAndEndsOnASignalWithWhatItHolds)
{
    startReceiver ({ "--profile", "stereo", "--fault", "refuse Ping 1 'not now'", "--folder", path ("slots") });
    waitFor ("out", "\n");
    const auto line = read (path ("out"));
    ASSERT_TRUE (line.starts_with ("Listening on 127.0.0.1:")) << line;
    {
        TestHost host (static_cast<std::uint16_t> (std::stoi (line.substr (23))));
        EXPECT_NE (std::string::npos, host.say ("Ping").find ("not now"));
        host.say ("LoadFilter deviceIndex: 0 slotIndex: 1 filter { name: 'Flat' noOfChannels: 1 }");
        host.say (
            "FilterChannel channelIndex: 0 name: '' gain_dB: 0 delay_ms: 0 maxGain_dB: 0 latency_ms: 0 noEq: true");
        host.say ("FilterData deviceIndex: 0 slotIndex: 1 sampleRate: 48000 sizeBytes: 0");
        sendSignal (SIGTERM);
        EXPECT_EQ ("closed", host.waitForEnd());
    }

    const auto ending = finish();
    EXPECT_EQ (0, ending.status);
    const std::string slot = "slot 1 name \"Flat\" technology \"\" channels 1 rates 1 bytes 0 complete\n"
                             "slot 1 rate 48000 channels  bytes 0 crc32 00000000 complete\n";
    EXPECT_EQ (line + slot + "Stopped\n" + slot, ending.out) << "when it is complete, and at the end";
    EXPECT_TRUE (read (path ("slots/slot1.txt")).starts_with (slot));
    EXPECT_TRUE (std::filesystem::exists (path ("slots/slot1_48000.bin")));
    EXPECT_EQ ("session 1: connected\nsession 1: fault \"refuse\" at Ping\n"
               "session 1: Ping refused: not now\nsession 1: disconnected\n",
               ending.err);
}

TEST_F (ReceiverProgram, SaysInOneSentenceWhyItDoesNotStart)
{
    const auto run = [this] (std::vector<std::string> arguments) {
        startReceiver (std::move (arguments));
        const auto ending = finish();
        return std::to_string (ending.status) + " " + ending.err;
    };
    EXPECT_EQ ("6 veltra-receiver: no/such/file cannot be read, and no built-in profile has this name\n",
               run ({ "--profile", "no/such/file" }));
    EXPECT_EQ ("7 veltra-receiver: LICENSE/x: the folder cannot be created: Not a directory.\n",
               run ({ "--folder", "LICENSE/x" }));
    EXPECT_TRUE (run ({ "--folder", "no/such/folder" }).starts_with ("7 "));
    EXPECT_EQ ("6 veltra-receiver: --fault \"lose\": TYPE is missing; expected \"lose TYPE WHICH\"\n",
               run ({ "--fault", "lose", "Ping", "1" }));
    EXPECT_EQ ("6 veltra-receiver: --fault \"\" contains no fault\n", run ({ "--fault", "" }));
    EXPECT_EQ ("6 veltra-receiver: no/such/folder: No such file or directory\n", run ({ "--room", "no/such/folder" }));
    EXPECT_EQ ("10 veltra-receiver: Cannot listen on here:0: Invalid argument\n", run ({ "--bind", "here" }));
    EXPECT_TRUE (run ({ "--nonsense" }).starts_with ("2 "));
}

}
}
