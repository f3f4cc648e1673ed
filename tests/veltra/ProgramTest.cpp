// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/veltra/WithReceiver.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

constexpr std::uint32_t kRate = 48000;

/** The program's words and endings. What it does to a receiver in earnest stands in EndToEndTest.cpp. */
class Veltra : public WithReceiver
{
protected:
    receiver::Profile profile = receiver::shippedProfile ("stereo");
};

TEST_F (Veltra, EveryKindOfFailureHasItsStatusAndItsSentence)
{
    write ("filters.xml", "<Veltra/>");
    expectOneSentence (veltra ({ "info", "--device", "127.0.0.1:1" }), kExitNoReceiver, "TCP:127.0.0.1:1");
    expectOneSentence (veltra ({ "info", "--device", "6000" }), kExitUsage, "HOST:PORT");
    expectOneSentence (veltra ({ "info", "--setting", "Device" }), kExitUsage, "KEY=VALUE");
    expectOneSentence (veltra ({ "info", "--log-level", "loud" }), kExitUsage, "--log-level");
    expectOneSentence (veltra ({}), kExitUsage, "no command");
    expectOneSentence (veltra ({ "informer" }), kExitUsage, "informer");
    expectOneSentence (veltra ({ "download", path ("filters.xml") }), kExitUsage, "--slot");
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("nothing") }), kExitInput, "nothing");
    expectOneSentence (veltra ({ "info", "--device", "a:1", "--log", path ("filters.xml/log") }), kExitOutput, "log");
    expectOneSentence (plainVeltra ({ "info", "--device", "a:1", "--module", path ("nothing") }), kExitModule,
                       "nothing");
    expectOneSentence (plainVeltra ({ "info", "--device", "a:1", "--module", path ("filters.xml") }), kExitModule,
                       "could not be loaded");

    profile.unit.mutable_devices (0)->mutable_filterslots (1)->set_isoccupied (true);
    profile.topologyInfo.mutable_topologies (1)->set_name ("X");
    startReceiver (profile);
    expectOneSentence (veltra ({ "download", "--slot", "2", path ("filters.xml") }), kExitUsage, "slots 0 to 1");
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("filters.xml") }), kExitInput, "filters.xml");
    expectOneSentence (veltra ({ "download", "--slot", "1", importRoom() }), kExitSlotInUse, "--replace");
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("room.xml") }), kExitConversion,
                       "fit this receiver: Topology X not supported.");
    setFaults ("refuse RemoveFilter 1");
    expectOneSentence (veltra ({ "remove", "--slot", "1" }), kExitReceiver, "did not empty slot 1");
}

TEST_F (Veltra, SlotsAreListedEmptiedAndReplaced)
{
    auto& device = *profile.unit.mutable_devices (0);
    device.mutable_filterslots (1)->set_isoccupied (true);
    device.mutable_filterslots (1)->set_name ("Old");
    device.mutable_configurations (0)->mutable_samplerates()->Assign (&kRate, &kRate + 1);
    startReceiver (profile);
    EXPECT_EQ ("   0  empty\n   1  \"Old\": FL FR\n", veltra ({ "slots" }).out);
    EXPECT_EQ ("Slot 0 was empty already.\n", veltra ({ "remove", "--slot", "0" }).out);

    ASSERT_EQ (0, plainVeltra ({ "design", roomFile ("FL_48000"), roomFile ("FR_48000"), "-o", path ("room.xml"),
                                 "--project", "New", "--taps", "99", "--sections", "9" })
                      .status);
    const auto ending = veltra ({ "download", "--slot", "1", "--replace", path ("room.xml") });
    EXPECT_EQ (0, ending.status) << ending.err;
    EXPECT_TRUE (ending.out.ends_with ("Slot 1 holds \"New\": FL FR\n")) << ending.out;
    EXPECT_EQ ("Slot 1 is empty now.\n", veltra ({ "remove", "--slot", "1" }).out);
}

TEST_F (Veltra, ASecondCtrlCDoesNotWaitForTheReceiver)
{
    startReceiver();
    importRoom();
    setFaults ("delay FilterDataChunk * 600");
    startVeltra ({ "download", "--slot", "0", path ("room.xml") });
    waitFor ("out", "  0 %");
    sendSignal (SIGINT);
    std::this_thread::sleep_for (std::chrono::milliseconds (50)); // two signals at once count as one
    sendSignal (SIGINT);
    EXPECT_EQ (SIGINT, finish().signal);
}

TEST_F (Veltra, ASignalDuringTheSearchLeavesNothingBehind)
{
    startReceiver();
    setFaults ("lose GetProtocolInfo *");

    for (const int number : { SIGINT, SIGTERM, SIGHUP })
    {
        const auto before = theReceiver->sessionCount();
        startVeltra ({ "info", "--setting", "Timeout=off" });
        EXPECT_TRUE (theReceiver->waitFor ([&] { return theReceiver->sessionCount() > before; }));
        EXPECT_FALSE (fs::is_empty (path ("tmp")));
        sendSignal (number);
        EXPECT_EQ (number, finish().signal);
        EXPECT_TRUE (fs::is_empty (path ("tmp")));
    }
}

TEST_F (Veltra, AMeasurementThatFailsLeavesTheModeAndWritesNothing)
{
    const auto measure = [&] (Words words) {
        words.insert (words.begin(), { "measure", "-o", path ("capture.wav") });
        return veltra (words);
    };
    const auto modes = [&] { return theReceiver->messageCount ("OperationModeInfo"); };

    profile.unit.set_capabilities (veltraio::Unit::Caps_kVolume);
    startReceiver (profile);
    expectOneSentence (measure ({ "--channel", "FL" }), kExitReceiver, "does not stream");

    startReceiver();
    expectOneSentence (measure ({ "--channel", "XX" }), kExitUsage,
                       "no channel XX; it has FL, FR, C, SW, SL, SR, BL, BR.");
    expectOneSentence (measure ({ "--channel", "8" }), kExitUsage, "no channel 8");
    expectOneSentence (measure ({ "--channel", "FL", "--rate", "88200" }), kExitUsage, "no stimulus sweep at 88200 Hz");
    expectOneSentence (measure ({ "--channel", "FL", "--stimulus", "music" }), kExitUsage, "--stimulus");
    EXPECT_EQ (0u, modes());

    setFaults ("refuse OperationModeInfo 1 No.");
    expectOneSentence (measure ({ "--channel", "FL" }), kExitReceiver, "enter measurement mode: No.");
    EXPECT_EQ (2u, modes());
    setFaults ("refuse StartStimulus 1 No.");
    expectOneSentence (measure ({ "--channel", "FL" }), kExitReceiver, "play the stimulus: No.");
    EXPECT_EQ (4u, modes());
    expectOneSentence (measure ({ "--channel", "FL", "--longest", "0.2" }), kExitReceiver, "come to an end");
    EXPECT_EQ (1u, theReceiver->messageCount ("StopStimulus"));
    EXPECT_FALSE (theReceiver->measurement().isMeasuring);

    receiver::Receiver::Options fast;
    fast.measurement.speed = 20.0;
    startReceiver (receiver::shippedProfile ("seven-one"), fast);
    setFaults ("refuse OperationModeInfo 2 No.");
    expectOneSentence (measure ({ "--channel", "FL", "--tail", "0.1" }), kExitReceiver, "leave measurement mode: No.");

    EXPECT_FALSE (fs::exists (path ("capture.wav")));
    EXPECT_FALSE (fs::exists (path ("capture.wav.part")));
}

TEST_F (Veltra, ControlsAreSetAndReadBack)
{
    startReceiver();
    EXPECT_EQ ("Volume 0.5 (35 %)\n", veltra ({ "volume", "0.5" }).out);
    EXPECT_EQ ("Volume 0.5 (35 %)\n", veltra ({ "volume" }).out);
    EXPECT_EQ ("Channel SW is attenuated by 12 dB of at most 12 dB\n", veltra ({ "attenuation", "SW", "20" }).out);
    EXPECT_EQ ("Channel 3 is attenuated by 12 dB of at most 12 dB\n", veltra ({ "attenuation", "3" }).out);
    EXPECT_EQ ("Slot 2 is in use\n", veltra ({ "slot", "2" }).out);
    EXPECT_EQ ("Filtering is off\n", veltra ({ "filtering" }).out);
    EXPECT_EQ ("Filtering is on\n", veltra ({ "filtering", "on" }).out);

    setFaults ("refuse Volume *\nrefuse ChannelAttenuation *\nrefuse ActiveFilterSlot *\nrefuse FilteringState *");
    expectOneSentence (veltra ({ "volume", "0.5" }), kExitReceiver, "volume");
    expectOneSentence (veltra ({ "volume", "-1" }), kExitUsage, "");
    expectOneSentence (veltra ({ "attenuation", "FL", "1" }), kExitReceiver, "attenuation");
    expectOneSentence (veltra ({ "attenuation", "8" }), kExitUsage, "no channel 8");
    expectOneSentence (veltra ({ "slot", "4" }), kExitUsage, "slots 0 to 3");
    expectOneSentence (veltra ({ "slot", "1" }), kExitReceiver, "slot 1");
    expectOneSentence (veltra ({ "filtering", "off" }), kExitReceiver, "filtering off");
    expectOneSentence (veltra ({ "filtering", "maybe" }), kExitUsage, "maybe");

    profile.unit.set_capabilities (0);
    startReceiver (profile);
    expectOneSentence (veltra ({ "volume" }), kExitReceiver, "volume");
}

/** From impulse responses to what a device holds, without a module. */
class Conversion : public WithReceiver
{
protected:
    Ending import (const Words& files, const Words& options = {})
    {
        Words words { "import", "--force", "-o", path ("room.xml") };
        words.insert (words.end(), files.begin(), files.end());
        words.insert (words.end(), options.begin(), options.end());
        return plainVeltra (words);
    }

    Ending convert (const std::string& topology, const std::string& rate, const std::string& taps,
                    const Words& options = {}, const std::string& description = "room.xml")
    {
        Words words { "convert", "--force", path (description), "--topology", topology, "--rate", rate, "--taps",
                      taps,      "-o",      path ("blob") };
        words.insert (words.end(), options.begin(), options.end());
        return plainVeltra (words);
    }
};

TEST_F (Conversion, ToFIRKeepsTheSamplesOfTheImport)
{
    std::string expected;

    for (const auto* name : { "FL_48000", "SW_48000" })
    {
        const auto samples = readMonoAudio (roomFile (name)).samples;
        expected.append (reinterpret_cast<const char*> (samples.data()), 1000 * sizeof (float));
    }

    ASSERT_EQ (0, import ({ roomFile ("FL_48000"), roomFile ("SW_48000") }).status);
    const auto ending = convert ("FIR", "48000", "1000");
    EXPECT_EQ (0, ending.status) << ending.err;
    expectParts (ending.out, { "FIR at 48000 Hz, 2 channels, 8000 bytes, crc32 " });
    EXPECT_TRUE (expected == read (path ("blob")));

    fs::remove (path ("blob"));
    write ("filters.xml", "<Veltra/>");
    expectOneSentence (convert ("FIR", "96000", "9"), kExitConversion,
                       "No filter response for channel FL at 96000 Hz.");
    expectOneSentence (convert ("FIR", "48000", "9", {}, "filters.xml"), kExitInput, "is no filter description");
    expectOneSentence (convert ("IIR", "48000", "9"), kExitUsage, "IIR");
    EXPECT_FALSE (fs::exists (path ("blob")));
}

TEST_F (Conversion, TellsWhatTheDeviceWillPlay)
{
    ASSERT_EQ (0, import ({ roomFile ("FL_48000"), roomFile ("SW_48000") }).status);
    auto ending =
        convert ("VLFIR2", "48000", "2048",
                 { "--plot", path ("plot.svg"), "--dump", path ("dump"), "--setting", "MaxFilterAttenuation=6" });
    expectSuccess (ending);
    expectParts (ending.out, { "\nFL            0    298     6.0        0   -74.0",
                               "\nSW            0    298     6.0        0   -63.7" });
    EXPECT_EQ (read (path ("blob")), read (path ("dump/blob_48000_2048.bin")));
    expectParts (read (path ("plot.svg")), { "</svg>" });

    ending = plainVeltra ({ "inspect", path ("blob") });
    EXPECT_EQ (0, ending.status);
    EXPECT_TRUE (ending.out.starts_with (
        path ("blob").string()
        + ": VLFIR2, 32876 bytes, 48000 Hz, 2 channels\nchannel 0: word 0 (id 0), gain -6.00 dB, "))
        << ending.out;
    EXPECT_TRUE (ending.out.ends_with ("\nEvery offset and count fits the file.\n")) << ending.out;

    write ("cut", read (path ("blob")).substr (0, 32000));
    ending = plainVeltra ({ "inspect", path ("cut"), "--topology", "VLFIR2" });
    expectParts (ending.out, { "wrong: channel 1: low-rate taps, 2048 from 24684, reach beyond the end at 32000\n" });
    expectOneSentence (ending, kExitInput, "is no sound blob");
    expectOneSentence (plainVeltra ({ "inspect", path ("nothing") }), kExitInput, "nothing");
    expectOneSentence (convert ("VLFIR2", "48000", "2048", { "--plot", path ("plot.jpg") }), kExitUsage,
                       ".svg or .png");
}

TEST_F (Conversion, AFilterThatBeginsAtOnceIsNotedForTheDualRateStructures)
{
    OutputFile wav (path ("FL_48000.wav"));
    writeFloatWav (wav, 48000, std::vector<float> { 0.5f, 0.25f });
    wav.complete();
    const auto noteFor = [&] (const std::string& topology, const std::string& leadIn) {
        EXPECT_EQ (0, import ({ path ("FL_48000.wav") }, { "--lead-in", leadIn }).status);
        return convert (topology, "48000", "1024").err;
    };

    EXPECT_EQ ("", noteFor ("VLFIR", "298"));
    EXPECT_EQ ("", noteFor ("FIR", "0"));
    const auto note = noteFor ("VLFIR", "0");
    EXPECT_TRUE (note.starts_with ("Note: ")) << note;
    expectParts (note, { "first sample of FL is lost", "--lead-in 298" });

    startReceiver();
    EXPECT_TRUE (veltra ({ "download", "--slot", "0", path ("room.xml") }).err.starts_with ("Note: if this receiver"));
}

TEST_F (Conversion, TheSampleRoomImportsToTheSameTextWhateverTheOrderOfTheFiles)
{
    const Words options { "--project", "Living room", "--channels", "FL,SW" };
    const auto ending = import (
        { roomFile ("FL_48000"), roomFile ("SW_48000"), roomFile ("FL_44100"), roomFile ("SW_44100") }, options);
    expectSuccess (ending);
    EXPECT_EQ (5, std::ranges::count (ending.out, '\n')) << ending.out;
    EXPECT_TRUE (ending.out.starts_with ("FL    44100 Hz   16384 samples, peak at ")) << ending.out;

    const auto text = read (path ("room.xml"));
    import ({ roomFile ("SW_44100"), roomFile ("SW_48000"), roomFile ("FL_44100"), roomFile ("FL_48000") }, options);
    EXPECT_NE ("", text);
    EXPECT_EQ (text, read (path ("room.xml")));
    expectOneSentence (plainVeltra ({ "import", "-o", path ("room.xml"), roomFile ("FL_48000") }), kExitOutput,
                       "--force");
}

// Once the design is made beforehand and copied, once it is made in the conversion, from a description of FIR sets.
TEST_F (Conversion, BothRoadsToADesignGiveTheSameBytes)
{
    const Words design { "design", roomFile ("FL_48000"), roomFile ("SW_48000"),
                         "-o",     path ("designed.xml"), "--taps",
                         "1000",   "--sections",          "12",
                         "--plot", path ("it's.svg") };
    const auto ending = plainVeltra (design);
    ASSERT_EQ (0, ending.status) << ending.err;
    expectParts (ending.out, { "FL at 48000 Hz: error -",
                               "     31     62    125    250    500     1k     2k     4k     8k    16k  Hz\n" });
    expectParts (read (path ("it's-FL_48000.svg")), { "</svg>" });
    expectOneSentence (plainVeltra (design), kExitOutput, "--force");

    EXPECT_EQ (0, convert ("FIIR", "48000", "1000", { "--sections", "12" }, "designed.xml").status);
    const auto copied = read (path ("blob"));
    EXPECT_EQ (2 * (1000 + 4 * 12) * sizeof (float), copied.size());
    ASSERT_EQ (0, import ({ roomFile ("FL_48000"), roomFile ("SW_48000") }).status);
    EXPECT_EQ (0, convert ("FIIR", "48000", "1000", { "--sections", "12" }).status);
    EXPECT_TRUE (copied == read (path ("blob")));

    const Words impossible { "design", roomFile ("FL_48000"), "-o", path ("none.xml") };
    const auto with = [&] (const std::string& option, const std::string& value) {
        auto words = impossible;
        words.insert (words.end(), { option, value });
        return plainVeltra (words);
    };
    expectOneSentence (with ("--taps", "48000"), kExitConversion,
                       "No FIIR design for channel FL at 48000 Hz: the response has 48000 samples, "
                       "which does not exceed the 48000 taps to keep.\n");
    expectOneSentence (with ("--sections", "300"), kExitUsage, "");
    EXPECT_FALSE (fs::exists (path ("none.xml")));
}

}

}
