#include <algorithm>

#include "tests/veltra/Program.h"
#include "tools/veltra/AudioFile.h"
#include "tools/veltra/ExitStatus.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

/** The built program, run as a person runs it, with the fake module in the place of the real one. */
class Veltra : public Program
{
protected:
    Veltra()
    {
        fs::create_directory (path ("tmp"));
        write ("filters.xml", "<Veltra/>");
    }

    std::vector<std::string> line (std::vector<std::string> words) const
    {
        words.insert (words.begin(), VELTRA_PROGRAM);
        words.insert (words.end(), { "--module", VELTRA_FAKE_MODULE, "--setting", "FakeRecord=" + path ("record").string() });
        return words;
    }

    Ending veltra (std::vector<std::string> words) { return run (line (std::move (words)), environment()); }
    void startVeltra (std::vector<std::string> words) { start (line (std::move (words)), environment()); }

    Environment environment() const { return { { "TMPDIR", path ("tmp").string() } }; }

    std::string record() const { return read (path ("record")); }

    void expectNothingLeft() const { EXPECT_TRUE (fs::is_empty (path ("tmp"))); }

    static void expectOneSentence (const Ending& ending, ExitStatus status, const std::string& words)
    {
        EXPECT_EQ (status, ending.status) << ending.err;
        EXPECT_NE (std::string::npos, ending.err.find (words)) << ending.err;
        EXPECT_TRUE (ending.err.starts_with ("veltra: ")) << ending.err;
        EXPECT_EQ (1, std::ranges::count (ending.err, '\n')) << ending.err;
    }

    const std::vector<std::string> device { "--device", "127.0.0.1:6000" };
};

TEST_F (Veltra, InfoSaysAllThatTheDeviceTells)
{
    const auto ending = veltra ({ "info", "--device", "127.0.0.1:6000", "--setting", "FakeOccupied=Old & new" });
    EXPECT_EQ (0, ending.status);
    EXPECT_EQ ("", ending.err);

    for (const char* const words : { "Maker, Model, Lounge", "SN-17", "44100 48000 Hz", "0  FL           number 0    loudspeaker  EQ",
                                     "SW           number 11   subwoofer    no EQ", "Front #2     number 31 ", "up to 12 dB", "20 ms",
                                     "0  empty", "48000 Hz: NbrOfFIRTaps=1000;NbrOfIIRSections=30", "sweep, 48000 Hz: Length=5" })
        EXPECT_NE (std::string::npos, ending.out.find (words)) << words << "\n" << ending.out;

    EXPECT_EQ (std::string::npos, ending.out.find ("noise"));
    EXPECT_NE (std::string::npos, record().find ("settings beside " + path ("tmp/veltra-").string())) << record();
    EXPECT_NE (std::string::npos, record().find ("looking for TCP:127.0.0.1:6000")) << record();
    EXPECT_NE (std::string::npos, record().find ("released")) << record();
    expectNothingLeft();
}

TEST_F (Veltra, ADownloadShowsItsProgressAndHandsTheTextOverWhole)
{
    const auto ending = veltra ({ "download", "--slot", "2", path ("filters.xml"), "--device", "127.0.0.1:6000" });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_EQ ("", ending.err);
    EXPECT_TRUE (ending.out.starts_with ("Preparing the filters...\n  0 %")) << ending.out;
    EXPECT_NE (std::string::npos, ending.out.find ("\n 80 %")) << ending.out;
    EXPECT_NE (std::string::npos, ending.out.find ("\n100 %  20 pieces in ")) << ending.out;
    EXPECT_TRUE (ending.out.ends_with ("Slot 2 holds \"From the text\": FL SW\n")) << ending.out;
    EXPECT_NE (std::string::npos, record().find ("text of 9 bytes")) << record();
    expectNothingLeft();
}

TEST_F (Veltra, EveryKindOfFailureHasItsStatusAndItsSentence)
{
    const auto download = [&] (std::vector<std::string> words)
    {
        words.insert (words.begin(), { "download", path ("filters.xml"), "--device", "127.0.0.1:6000" });
        return veltra (words);
    };

    expectOneSentence (veltra ({ "info", "--device", "nowhere:1", "--setting", "FakeReceivers=0" }), kExitNoReceiver, "TCP:nowhere:1");
    expectOneSentence (veltra ({ "info", "--device", "127.0.0.1:1", "--setting", "FakeReceivers=2" }), kExitNoReceiver, "Several");
    expectOneSentence (veltra ({ "info", "--device", "6000" }), kExitUsage, "HOST:PORT");
    expectOneSentence (veltra ({ "info", "--setting", "Device" }), kExitUsage, "KEY=VALUE");
    expectOneSentence (veltra ({ "info", "--log-level", "loud" }), kExitUsage, "--log-level");
    expectOneSentence (veltra ({}), kExitUsage, "no command");
    expectOneSentence (veltra ({ "informer" }), kExitUsage, "informer");
    expectOneSentence (veltra ({ "download", path ("filters.xml") }), kExitUsage, "--slot");
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("nothing") }), kExitInput, "nothing");
    expectOneSentence (download ({ "--slot", "3" }), kExitUsage, "slots 0 to 2");
    expectOneSentence (download ({ "--slot", "0", "--setting", "FakeDownload=text" }), kExitInput, "filters.xml");
    expectOneSentence (download ({ "--slot", "1", "--setting", "FakeOccupied=Old" }), kExitSlotInUse, "--replace");
    expectOneSentence (download ({ "--slot", "0", "--setting", "FakeDownload=conversion", "--setting", "FakeWords=Topology X not supported" }),
                       kExitConversion, "fit this receiver: Topology X not supported.");
    expectOneSentence (download ({ "--slot", "0", "--setting", "FakeDownload=refusal", "--setting", "FakeWords=Flash worn out." }),
                       kExitReceiver, "did not take the filters: Flash worn out.");
    expectOneSentence (veltra ({ "remove", "--slot", "1", "--device", "a:1", "--setting", "FakeOccupied=x", "--setting", "FakeDownload=refusal" }),
                       kExitReceiver, "did not empty slot 1");
    expectOneSentence (veltra ({ "info", "--device", "a:1", "--log", path ("filters.xml/log") }), kExitOutput, "log");
    expectOneSentence (run ({ VELTRA_PROGRAM, "info", "--device", "a:1", "--module", path ("nothing") }, environment()), kExitModule, "nothing");
    expectOneSentence (run ({ VELTRA_PROGRAM, "info", "--device", "a:1", "--module", path ("filters.xml") }, environment()), kExitModule, "could not be loaded");
    expectNothingLeft();
}

TEST_F (Veltra, SlotsAreListedEmptiedAndReplaced)
{
    const std::string occupied = "FakeOccupied=Old";
    auto ending = veltra ({ "slots", "--device", "a:1", "--setting", occupied });
    EXPECT_EQ ("   0  empty\n   1  \"Old\": FL SW\n   2  empty\n", ending.out);

    ending = veltra ({ "remove", "--slot", "1", "--device", "a:1", "--setting", occupied });
    EXPECT_EQ ("Slot 1 is empty now.\n", ending.out);
    EXPECT_NE (std::string::npos, record().find ("emptied slot 1"));

    ending = veltra ({ "remove", "--slot", "0", "--device", "a:1", "--setting", occupied });
    EXPECT_EQ (0, ending.status);
    EXPECT_EQ ("Slot 0 was empty already.\n", ending.out);

    ending = veltra ({ "download", "--slot", "1", "--replace", path ("filters.xml"), "--device", "a:1", "--setting", occupied });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_TRUE (ending.out.ends_with ("Slot 1 holds \"From the text\": FL SW\n")) << ending.out;
}

TEST_F (Veltra, TheLogGetsItsPathAndLevel)
{
    EXPECT_EQ (0, veltra ({ "slots", "--device", "a:1", "--log", path ("log.txt"), "--log-level", "WARN" }).status);
    EXPECT_EQ ("log level 30000\n", read (path ("log.txt")));
}

TEST_F (Veltra, CtrlCEndsADownloadInOrderAndSaysSo)
{
    startVeltra ({ "download", "--slot", "0", path ("filters.xml"), "--device", "a:1", "--setting", "FakePieces=100", "--setting", "FakePieceMs=20" });
    waitFor ("out", " 10 %");
    sendSignal (SIGINT);
    const auto ending = finish();

    expectOneSentence (ending, kExitCancelled, "Cancelled; slot 0 of the receiver is incomplete.");
    EXPECT_NE (std::string::npos, record().find ("download cancelled\nreleased")) << record();
    expectNothingLeft();
}

TEST_F (Veltra, ASecondCtrlCDoesNotWaitForTheReceiver)
{
    startVeltra ({ "download", "--slot", "0", path ("filters.xml"), "--device", "a:1", "--setting", "FakePieces=100", "--setting", "FakePieceMs=600" });
    waitFor ("out", "  0 %");
    sendSignal (SIGINT);
    std::this_thread::sleep_for (std::chrono::milliseconds (50)); // two signals at once count as one
    sendSignal (SIGINT);
    EXPECT_EQ (SIGINT, finish().signal);
    expectNothingLeft();
}

TEST_F (Veltra, ASignalDuringTheSearchLeavesNothingBehind)
{
    for (const int number : { SIGINT, SIGTERM, SIGHUP })
    {
        fs::remove (path ("record"));
        startVeltra ({ "info", "--device", "a:1", "--setting", "FakeFindMs=60000" });
        waitFor ("record", "looking for");
        EXPECT_FALSE (fs::is_empty (path ("tmp")));
        sendSignal (number);
        EXPECT_EQ (number, finish().signal);
        expectNothingLeft();
    }
}

TEST_F (Veltra, AMeasurementWritesWhatWasStreamedAndLeavesTheMode)
{
    auto ending = veltra ({ "measure", "--channel", "SW,31", "--tail", "0.5", "-o", path ("capture.wav"), "--device", "a:1" });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_EQ ("", ending.err);
    EXPECT_NE (std::string::npos, record().find ("enter 48000 with 2\nstart 0 on 11 31\nleave\n")) << record();
    EXPECT_NE (std::string::npos, ending.out.find (" s at 48000 Hz in ")) << ending.out;

    const auto audio = readMonoAudio (path ("capture.wav"));
    EXPECT_EQ (48000u, audio.sampleRate);
    EXPECT_GE (audio.samples.size(), 24000u); // the tail alone

    for (std::size_t i = 0; i < audio.samples.size(); ++i)
        ASSERT_EQ (static_cast<float> (i) / 65536.0f, audio.samples[i]) << i;

    expectOneSentence (veltra ({ "measure", "--channel", "FL", "-o", path ("capture.wav"), "--device", "a:1" }), kExitOutput, "--force");
    expectNothingLeft();
}

TEST_F (Veltra, AMeasurementThatFailsLeavesTheModeAndWritesNothing)
{
    const auto measure = [&] (std::vector<std::string> words)
    {
        fs::remove (path ("record"));
        words.insert (words.begin(), { "measure", "-o", path ("capture.wav"), "--device", "a:1", "--setting", "FakeWords=No." });
        return veltra (words);
    };

    expectOneSentence (measure ({ "--channel", "XX" }), kExitUsage, "no channel XX; it has FL, SW, Front #2.");
    expectOneSentence (measure ({ "--channel", "1" }), kExitUsage, "no channel 1");
    expectOneSentence (measure ({ "--channel", "FL", "--stimulus", "noise" }), kExitUsage, "no stimulus noise;");
    expectOneSentence (measure ({ "--channel", "FL", "--rate", "44100" }), kExitUsage, "no stimulus sweep at 44100 Hz");
    expectOneSentence (measure ({ "--channel", "FL", "--stimulus", "music" }), kExitUsage, "--stimulus");
    expectOneSentence (measure ({ "--channel", "FL", "--setting", "FakeCaps=20" }), kExitReceiver, "does not stream");
    EXPECT_EQ (std::string::npos, record().find ("enter"));

    expectOneSentence (measure ({ "--channel", "FL", "--setting", "FakeRefuse=enter" }), kExitReceiver, "enter measurement mode: No.");
    EXPECT_NE (std::string::npos, record().find ("enter 48000 with 1\nleave\n")) << record();
    expectOneSentence (measure ({ "--channel", "FL", "--setting", "FakeRefuse=start" }), kExitReceiver, "play the stimulus: No.");
    EXPECT_NE (std::string::npos, record().find ("start 0 on 0\nleave\n")) << record();
    expectOneSentence (measure ({ "--channel", "FL", "--tail", "0.1", "--setting", "FakeRefuse=leave" }), kExitReceiver, "leave measurement mode: No.");
    expectOneSentence (measure ({ "--channel", "FL", "--longest", "0.2", "--setting", "FakeStimulusMs=9999" }), kExitReceiver, "come to an end");
    EXPECT_NE (std::string::npos, record().find ("stop\nleave\n")) << record();

    EXPECT_FALSE (fs::exists (path ("capture.wav")));
    EXPECT_FALSE (fs::exists (path ("capture.wav.part")));
    expectNothingLeft();
}

TEST_F (Veltra, CtrlCEndsAMeasurementInOrder)
{
    for (const int number : { SIGINT, SIGTERM })
    {
        fs::remove (path ("record"));
        startVeltra ({ "measure", "--channel", "FL", "-o", path ("capture.wav"), "--device", "a:1", "--setting", "FakeStimulusMs=60000" });
        waitFor ("record", "start 0");
        sendSignal (number);
        expectOneSentence (finish(), kExitCancelled, "Cancelled; nothing was written.");
        EXPECT_NE (std::string::npos, record().find ("stop\nleave\nreleased\n")) << record();
        EXPECT_FALSE (fs::exists (path ("capture.wav.part")));
        expectNothingLeft();
    }
}

TEST_F (Veltra, ControlsAreSetAndReadBack)
{
    const auto control = [&] (std::vector<std::string> words)
    {
        words.insert (words.end(), { "--device", "a:1" });
        return veltra (words);
    };

    EXPECT_EQ ("Volume 0.25 (quite loud)\n", control ({ "volume" }).out);
    EXPECT_EQ ("Volume 0.5 (quite loud)\n", control ({ "volume", "0.5" }).out);
    EXPECT_EQ ("Channel SW is attenuated by 12 dB of at most 12 dB\n", control ({ "attenuation", "SW", "20" }).out);
    EXPECT_EQ ("Channel 31 is attenuated by 0 dB of at most 12 dB\n", control ({ "attenuation", "31" }).out);
    EXPECT_EQ ("Slot 2 is in use\n", control ({ "slot", "2" }).out);
    EXPECT_EQ ("Filtering is off\n", control ({ "filtering" }).out);
    EXPECT_EQ ("Filtering is on\n", control ({ "filtering", "on" }).out);

    expectOneSentence (control ({ "volume", "0.5", "--setting", "FakeRefuse=volume" }), kExitReceiver, "volume");
    expectOneSentence (control ({ "volume", "--setting", "FakeCaps=17" }), kExitReceiver, "volume");
    expectOneSentence (control ({ "volume", "-1" }), kExitUsage, "");
    expectOneSentence (control ({ "attenuation", "FL", "1", "--setting", "FakeRefuse=attenuation" }), kExitReceiver, "attenuation");
    expectOneSentence (control ({ "attenuation", "7" }), kExitUsage, "no channel 7");
    expectOneSentence (control ({ "slot", "3" }), kExitUsage, "slots 0 to 2");
    expectOneSentence (control ({ "slot", "1", "--setting", "FakeRefuse=slot" }), kExitReceiver, "slot 1");
    expectOneSentence (control ({ "filtering", "on", "--setting", "FakeRefuse=filtering" }), kExitReceiver, "filtering on");
    expectOneSentence (control ({ "filtering", "maybe" }), kExitUsage, "maybe");
}

TEST_F (Veltra, AConversionToFIRKeepsTheSamplesOfTheImport)
{
    const std::vector<std::string> names { "FL", "SW" };
    std::vector<std::string> import { "import", "-o", path ("room.xml") };
    std::string expected;

    for (const auto& name : names)
    {
        const auto file = "examples/living-room/" + name + "_48000.wav";
        import.push_back (file);
        const auto samples = readMonoAudio (file).samples;
        expected.append (reinterpret_cast<const char*> (samples.data()), 1000 * sizeof (float));
    }

    ASSERT_EQ (0, veltra (import).status);
    const auto ending = veltra ({ "convert", path ("room.xml"), "--topology", "FIR", "--rate", "48000", "--taps", "1000", "-o", path ("blob") });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_NE (std::string::npos, ending.out.find ("FIR at 48000 Hz, 2 channels, 8000 bytes, crc32 ")) << ending.out;
    EXPECT_TRUE (expected == read (path ("blob")));

    expectOneSentence (veltra ({ "convert", path ("room.xml"), "--topology", "FIR", "--rate", "96000", "--taps", "9", "-o", path ("none") }),
                       kExitConversion, "No filter response for channel FL at 96000 Hz.");
    expectOneSentence (veltra ({ "convert", path ("filters.xml"), "--topology", "FIR", "--rate", "48000", "--taps", "9", "-o", path ("none") }),
                       kExitInput, "is no filter description");
    expectOneSentence (veltra ({ "convert", path ("room.xml"), "--topology", "IIR", "--rate", "48000", "--taps", "9", "-o", path ("none") }),
                       kExitUsage, "IIR");
    EXPECT_FALSE (fs::exists (path ("none")));
}

TEST_F (Veltra, AConversionTellsWhatTheDeviceWillPlay)
{
    ASSERT_EQ (0, veltra ({ "import", "-o", path ("room.xml"), "examples/living-room/FL_48000.wav", "examples/living-room/SW_48000.wav" }).status);
    auto ending = veltra ({ "convert", path ("room.xml"), "--topology", "VLFIR2", "--rate", "48000", "--taps", "2048", "-o", path ("blob"),
                            "--plot", path ("plot.svg"), "--dump", path ("dump"), "--setting", "MaxFilterAttenuation=6" });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_EQ ("", ending.err);
    EXPECT_NE (std::string::npos, ending.out.find ("\nFL            0    298     6.0        0   -74.0")) << ending.out;
    EXPECT_NE (std::string::npos, ending.out.find ("\nSW            0    298     6.0        0   -63.7")) << ending.out;
    EXPECT_EQ (read (path ("blob")), read (path ("dump/blob_48000_2048.bin")));
    EXPECT_NE (std::string::npos, read (path ("plot.svg")).find ("</svg>"));

    ending = veltra ({ "inspect", path ("blob") });
    EXPECT_EQ (0, ending.status);
    EXPECT_TRUE (ending.out.starts_with (path ("blob").string() + ": VLFIR2, 32876 bytes, 48000 Hz, 2 channels\nchannel 0: word 0 (id 0), gain -6.00 dB, "))
        << ending.out;
    EXPECT_TRUE (ending.out.ends_with ("\nEvery offset and count fits the file.\n")) << ending.out;

    write ("cut", read (path ("blob")).substr (0, 32000));
    ending = veltra ({ "inspect", path ("cut"), "--topology", "VLFIR2" });
    EXPECT_NE (std::string::npos, ending.out.find ("wrong: channel 1: low-rate taps, 2048 from 24684, reach beyond the end at 32000\n")) << ending.out;
    expectOneSentence (ending, kExitInput, "is no sound blob");
    expectOneSentence (veltra ({ "inspect", path ("nothing") }), kExitInput, "nothing");
    expectOneSentence (veltra ({ "convert", path ("room.xml"), "--topology", "VLFIR2", "--rate", "48000", "--taps", "2048", "-o", path ("other"),
                                 "--plot", path ("plot.jpg") }), kExitUsage, ".svg or .png");
}

TEST_F (Veltra, AFilterThatBeginsAtOnceIsNotedForTheDualRateStructures)
{
    writeFloatWav (path ("FL_48000.wav"), 48000, std::vector<float> { 0.5f, 0.25f });
    const auto convert = [&] (const std::string& topology, const std::string& leadIn)
    {
        EXPECT_EQ (0, veltra ({ "import", "--force", "-o", path ("room.xml"), path ("FL_48000.wav"), "--lead-in", leadIn }).status);
        return veltra ({ "convert", "--force", path ("room.xml"), "--topology", topology, "--rate", "48000", "--taps", "1024", "-o", path ("blob") }).err;
    };

    const auto note = convert ("VLFIR", "0");
    EXPECT_TRUE (note.starts_with ("Note: ")) << note;
    EXPECT_NE (std::string::npos, note.find ("first sample of FL is lost")) << note;
    EXPECT_NE (std::string::npos, note.find ("--lead-in 298")) << note;

    ASSERT_EQ (0, veltra ({ "import", "--force", "-o", path ("room.xml"), path ("FL_48000.wav") }).status);
    EXPECT_TRUE (veltra ({ "download", "--slot", "0", path ("room.xml"), "--device", "a:1" }).err.starts_with ("Note: if this receiver"));

    EXPECT_EQ ("", convert ("VLFIR", "298"));
    EXPECT_EQ ("", convert ("FIR", "0"));
}

TEST_F (Veltra, TheSampleRoomImportsToTheSameTextWhateverTheOrderOfTheFiles)
{
    const std::string room = "examples/living-room/";
    auto ending = veltra ({ "import", "-o", path ("a.xml"), "--project", "Living room", "--channels", "FL,SW",
                            room + "FL_48000.wav", room + "SW_48000.wav", room + "FL_44100.wav", room + "SW_44100.wav" });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_EQ ("", ending.err);
    EXPECT_EQ (5, std::ranges::count (ending.out, '\n')) << ending.out;
    EXPECT_TRUE (ending.out.starts_with ("FL    44100 Hz   16384 samples, peak at ")) << ending.out;

    ending = veltra ({ "import", "-o", path ("b.xml"), "--project", "Living room", "--channels", "FL,SW",
                       room + "SW_44100.wav", room + "SW_48000.wav", room + "FL_44100.wav", room + "FL_48000.wav" });
    EXPECT_EQ (read (path ("a.xml")), read (path ("b.xml")));
    EXPECT_NE ("", read (path ("a.xml")));

    expectOneSentence (veltra ({ "import", "-o", path ("a.xml"), room + "FL_48000.wav" }), kExitOutput, "--force");
}

}

}
