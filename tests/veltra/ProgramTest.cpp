// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/veltra/WithReceiver.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

constexpr std::uint32_t kRate = 48000;

/** What the program prints and how it ends. Whole downloads and measurements are in EndToEndTest.cpp. */
class Veltra : public WithReceiver
{
protected:
    receiver::Profile profile = receiver::shippedProfile ("stereo");
};

TEST_F (Veltra, EveryKindOfFailureHasItsStatusAndItsSentence)
{
    write ("filters.xml", "<Veltra/>");
    expectOneSentence (veltra ({ "info", "--device", "127.0.0.1:1" }), kExitNoReceiver, "127.0.0.1:1");
    expectOneSentence (veltra ({ "info", "--device", "6000" }), kExitUsage, "HOST:PORT");
    expectOneSentence (veltra ({ "info", "--setting", "Device" }), kExitUsage, "KEY=VALUE");
    expectOneSentence (veltra ({ "info", "--setting", "Speed=1" }), kExitUsage,
                       "no setting Speed; it has Device, ST, ");
    expectOneSentence (veltra ({ "info", "--setting", "NoEqCompensateLimits=-3;x" }), kExitUsage, "two numbers");
    expectOneSentence (veltra ({ "info", "--setting", "UPnPTimeout=6s" }), kExitUsage, "'6s' is not a value");
    expectOneSentence (veltra ({ "info", "--log-level", "loud" }), kExitUsage, "--log-level");
    expectOneSentence (veltra ({}), kExitUsage, "No command");
    expectOneSentence (veltra ({ "informer" }), kExitUsage, "informer");
    expectOneSentence (veltra ({ "download", path ("filters.xml") }), kExitUsage, "--slot");
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("nothing") }), kExitInput, "nothing");
    expectOneSentence (veltra ({ "info", "--device", "a:1", "--log", path ("filters.xml/log") }), kExitOutput, "log");
    expectOneSentence (plainVeltra ({ "info", "--device", "a:1", "--module", path ("nothing") }), kExitModule,
                       "nothing");
    expectOneSentence (plainVeltra ({ "slot", "--device", "a:1", "--module", path ("filters.xml") }), kExitModule,
                       "could not be loaded");

    profile.unit.mutable_devices (0)->mutable_filterslots (1)->set_isoccupied (true);
    profile.topologyInfo.mutable_topologies (1)->set_name ("X");
    startReceiver (profile);
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("filters.xml") }), kExitInput,
                       "filters.xml is not a valid filter description");
    expectOneSentence (veltra ({ "download", "--slot", "2", importRoom() }), kExitUsage, "slots 0 to 1");
    expectOneSentence (veltra ({ "download", "--slot", "1", path ("room.xml") }), kExitSlotInUse, "--replace");
    expectOneSentence (veltra ({ "download", "--slot", "0", path ("room.xml") }), kExitChannels,
                       "channels: no channel for BL, BR, C, SL, SR, SW; see");
    expectOneSentence (veltra ({ "download", "--slot", "0", "--partial", path ("room.xml") }), kExitConversion,
                       "fit this receiver: Topology X not supported.");
    EXPECT_EQ (0u, theReceiver->messageCount ("LoadFilter"));
    setFaults ("refuse RemoveFilter 1");
    expectOneSentence (veltra ({ "remove", "--slot", "1" }), kExitReceiver, "did not empty slot 1");
}

TEST_F (Veltra, SlotsAreListedEmptiedAndReplaced)
{
    auto& device = *profile.unit.mutable_devices (0);
    device.mutable_filterslots (1)->set_isoccupied (true);
    device.mutable_filterslots (1)->set_name ("Old");
    device.mutable_configurations (0)->mutable_samplerates()->Assign (&kRate, &kRate + 1);
    profile.topologyInfo.mutable_topologies (1)->set_information ("NbrOfFIRTaps=99;NbrOfIIRSections=9");
    startReceiver (profile);
    EXPECT_EQ ("   0  empty\n   1  \"Old\"\n", veltra ({ "slots" }).out);
    EXPECT_EQ ("Slot 0 was empty already.\n", veltra ({ "remove", "--slot", "0" }).out);

    const auto design = [&] (const std::string& taps) {
        return plainVeltra ({ "design", roomFile ("FR_48000"), roomFile ("FL_48000"), "-o", path ("room.xml"),
                              "--project", "New", "--taps", taps, "--sections", "9", "--force" })
            .status;
    };
    ASSERT_EQ (0, design ("98"));
    expectOneSentence (veltra ({ "download", "--slot", "1", "--replace", path ("room.xml") }), kExitConversion,
                       "veltra design --taps 99 --sections 9");
    EXPECT_EQ (0u, theReceiver->messageCount ("RemoveFilter"));
    ASSERT_EQ (0, design ("99"));
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
    startVeltra ({ "download", "--json", "--slot", "0", path ("room.xml") });
    waitFor ("out", "\"progress\"");
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
        startVeltra ({ "slot", "--setting", "Timeout=off" });
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
    expectOneSentence (veltra ({ "attenuation", "FL", "1" }), kExitReceiver, "attenuation");
    expectOneSentence (veltra ({ "attenuation", "8" }), kExitUsage, "no channel 8");
    expectOneSentence (veltra ({ "slot", "4" }), kExitUsage, "slots 0 to 3");
    expectOneSentence (veltra ({ "slot", "1" }), kExitReceiver, "slot 1");
    expectOneSentence (veltra ({ "filtering", "off" }), kExitReceiver, "filtering off");
    expectOneSentence (veltra ({ "filtering", "maybe" }), kExitUsage, "maybe");

    const auto before = theReceiver->sessionCount();

    for (const char* const text : { "-1", "50%", "0,5", "nan", "1e99", "" })
    {
        expectOneSentence (veltra ({ "volume", text }), kExitUsage, text);
        expectOneSentence (veltra ({ "attenuation", "FL", text }), kExitUsage, text);
    }

    EXPECT_EQ (before, theReceiver->sessionCount());
    profile.unit.set_capabilities (0);
    startReceiver (profile);
    expectOneSentence (veltra ({ "volume" }), kExitReceiver, "volume");
}

TEST_F (Veltra, CompletionsKnowCommandsOptionsAndFiles)
{
    const std::string load = std::string ("eval \"$(") + VELTRA_PROGRAM + " --completion bash)\"; ";
    const auto completed = [&] (const std::string& words) {
        return run ({ "bash", "-c",
                      load + "COMP_WORDS=(veltra " + words
                          + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _veltra; echo \"${COMPREPLY[*]}\"" })
            .out;
    };
    EXPECT_EQ ("measure\n", completed ("mea"));
    EXPECT_EQ ("--stimulus\n", completed ("measure --sti"));
    EXPECT_EQ ("--replace\n", completed ("download --slot 1 --rep"));
    EXPECT_EQ ("--device\n", completed ("download --dev"));
    EXPECT_EQ ("README.md\n", completed ("measure -o READ"));
    EXPECT_EQ ("README.md\n", completed ("download READ"));
    EXPECT_EQ ("\n", completed ("measure --channel READ")) << "no file";

    // Shells that are not installed have nothing to say about their own.
    for (const std::string shell : { "zsh", "fish" })
    {
        const auto ending =
            run ({ "sh", "-c",
                   "\"$0\" --completion " + shell + " >" + path ("completion").string() + " && { ! command -v " + shell
                       + " >/dev/null || " + shell + " -n " + path ("completion").string() + "; }",
                   VELTRA_PROGRAM });
        expectSuccess (ending);
        expectParts (read (path ("completion")), { "measure", "stimulus", "Play a test signal" });
    }
}

TEST_F (Veltra, InfoPrintsWhatTheReceiverDeclaredAndNoControlCharacters)
{
    auto& device = *profile.unit.mutable_devices (0);
    profile.unit.set_name ("\x1b[2JStereo");
    device.mutable_filterslots (0)->set_isoccupied (true);
    device.mutable_filterslots (0)->set_name ("Old\r\x9b");
    device.mutable_outputchannels (1)->set_name ("F\x07R");
    auto& configuration = *device.mutable_configurations (0);
    configuration.clear_samplerates();
    configuration.add_samplerates (88200);
    profile.topologyInfo.clear_topologies();
    auto& entry = *profile.topologyInfo.add_topologies();
    entry.set_name ("VLFIR");
    entry.set_samplerate (88200);
    entry.set_information ("NbrOfFIRTaps=2048");
    profile.stimulusInfo.mutable_stimulusinformation (0)->set_information ("a\x1b");
    startReceiver (profile);

    const auto info = veltra ({ "info" });
    expectSuccess (info);
    expectParts (info.out,
                 { "\\x1b[2JStereo", "Sample rates       88200 Hz\n", "F\\x07R", "Old\\r?",
                   " 88200 Hz  VLFIR, 2048 taps, latency 2.9 ms (default of the module)\n",
                   "convert: --topology VLFIR --rate 88200 --taps 2048\n",
                   "(its default: the receiver declares no topology FIIR)\n  FIIR, 44100 Hz: NbrOfFIRTaps=918;" });
    EXPECT_EQ ("   0  \"Old\\r?\"\n   1  empty\n", veltra ({ "slots" }).out);

    for (const char c : { '\x1b', '\r', '\x07', '\x9b' })
        EXPECT_EQ (std::string::npos, info.out.find (c));
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

    const Words files { roomFile ("FL_48000"), roomFile ("SW_48000") };
    EXPECT_TRUE (import (files).out.starts_with ("FL    48000 Hz   16384 samples, peak at "));
    expectOneSentence (plainVeltra ({ "import", "-o", path ("room.xml"), files[0] }), kExitOutput, "--force");
    const auto ending = convert ("FIR", "48000", "1000");
    EXPECT_EQ (0, ending.status) << ending.err;
    expectParts (ending.out, { "FIR at 48000 Hz, 2 channels, 8000 bytes, crc32 " });
    EXPECT_TRUE (expected == read (path ("blob")));

    fs::remove (path ("blob"));
    expectOneSentence (convert ("FIR", "96000", "9"), kExitConversion,
                       "No filter response for channel FL at 96000 Hz.");
    write ("filters.xml", "<Veltra><Tune><Channel>\n<Coefficients Topology='FIR'><FIR NbrOfTaps='2'>\n<taps>1\n2</taps>"
                          "</FIR></Coefficients></Channel></Tune></Veltra>");

    for (const auto& refused : { convert ("FIR", "48000", "9", {}, "filters.xml"),
                                 plainVeltra ({ "check-description", path ("filters.xml") }),
                                 veltra ({ "download", "--slot", "0", path ("filters.xml") }) })
        expectOneSentence (refused, kExitInput,
                           "filters.xml is not a valid filter description: line 3: taps has 1 number, NbrOfTaps says "
                           "2; numbers are separated by spaces or brackets, not by line ends.\n");
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
    expectOneSentence (ending, kExitInput, "is not a valid blob");
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
}

TEST_F (Conversion, AnImportForAReceiverTakesItsNamesOrderAndNumbers)
{
    const Words files { roomFile ("C_48000"), roomFile ("FL_48000"), roomFile ("FR_48000") };
    startReceiver (receiver::shippedProfile ("twelve"));
    write ("stereo.textproto", read ("examples/receivers/stereo.textproto"));

    for (const std::string& stereo : Words { "stereo", path ("stereo.textproto") })
    {
        expectOneSentence (import (files, { "--for", stereo }), kExitChannels, "channels: no channel for C; see");
        const auto ending = import (files, { "--for", stereo, "--partial" });
        EXPECT_EQ (0, ending.status) << ending.err;
        EXPECT_EQ (path ("room.xml").string()
                       + ": \"room\", 2 channels\n  FL   number 1    48000 Hz 16384 taps\n"
                         "  FR   number 2    48000 Hz 16384 taps\n",
                   plainVeltra ({ "check-description", path ("room.xml") }).out);
    }

    expectOneSentence (import (files, { "--for", theReceiver->address() }), kExitChannels, "no filter for SW, SL, ");
    expectOneSentence (import (files, { "--for", "mono" }), kExitUsage, "'mono' is neither HOST:PORT nor");
}

// Once the design is made beforehand and copied, once it is made in the conversion, from a description of FIR sets.
TEST_F (Conversion, BothRoadsToADesignGiveTheSamePoles)
{
    const Words design { "design", roomFile ("FL_48000"), roomFile ("SW_48000"),
                         "-o",     path ("designed.xml"), "--taps",
                         "1000",   "--sections",          "12",
                         "--plot", path ("it's.svg") };
    const auto ending = plainVeltra (design);
    ASSERT_EQ (0, ending.status) << ending.err;
    expectParts (ending.out, { "FIIR at 48000 Hz, 12 sections\n",
                               "  error     15   31   62  125  250  500   1k   2k   4k   8k  16k\n" });
    expectParts (read (path ("it's-FL_48000.svg")), { "</svg>" });
    expectOneSentence (plainVeltra (design), kExitOutput, "--force");

    EXPECT_EQ (0, convert ("FIIR", "48000", "1000", { "--sections", "12" }, "designed.xml").status);
    const auto copied = read (path ("blob"));
    EXPECT_EQ (2 * (1000 + 4 * 12) * sizeof (float), copied.size());
    ASSERT_EQ (0, import ({ roomFile ("FL_48000"), roomFile ("SW_48000") }).status);
    EXPECT_EQ (0, convert ("FIIR", "48000", "1000", { "--sections", "12" }).status);
    const auto designed = read (path ("blob"));
    ASSERT_EQ (copied.size(), designed.size());

    // Of each section's four numbers the last two, its numerator, are fitted once more by `veltra design`.
    for (std::size_t at = 0; at < copied.size(); at += 16)
        EXPECT_EQ (copied.substr (at, 8), designed.substr (at, 8)) << at;

    EXPECT_NE (copied, designed);

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
