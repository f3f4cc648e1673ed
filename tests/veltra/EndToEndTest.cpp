#include <cmath>
#include <limits>
#include <memory>

#include "dsp/FIIRDesign.h"
#include "dsp/FftConvolve.h"
#include "dsp/ParallelSections.h"
#include "tests/veltra/Program.h"
#include "tools/common/Deconvolution.h"
#include "tools/common/Stimulus.h"
#include "tools/receiver/Receiver.h"
#include "tools/veltra/AudioFile.h"
#include "tools/veltra/ExitStatus.h"

namespace veltra::host {

namespace {

const std::vector<std::string> kChannels { "FL", "FR", "C", "SW", "SL", "SR", "BL", "BR" };

std::string roomFile (const std::string& name) { return "examples/living-room/" + name + ".wav"; }

Eigen::VectorXf vectorOf (const std::vector<float>& samples)
{
    return Eigen::Map<const Eigen::VectorXf> (samples.data(), static_cast<Eigen::Index> (samples.size()));
}

/** The built program with the built module, both as they are shipped, and a simulated receiver in this process. */
class EndToEnd : public Program
{
protected:
    void startReceiver (receiver::Receiver::Options options = {})
    {
        startReceiver (receiver::shippedProfile ("seven-one"), std::move (options));
    }

    void startReceiver (receiver::Profile profile, receiver::Receiver::Options options)
    {
        theReceiver = std::make_unique<receiver::Receiver> (std::move (profile), std::move (options));
    }

    std::vector<std::string> line (std::vector<std::string> words) const
    {
        words.insert (words.begin(), VELTRA_PROGRAM);
        words.insert (words.end(), { "--module", VELTRA_MODULE, "--device", theReceiver->address() });
        words.insert (words.end(), furtherOptions.begin(), furtherOptions.end());
        return words;
    }

    Ending veltra (std::vector<std::string> words) { return run (line (std::move (words))); }

    /** The filters of some channels at some rates, numbered as the receiver numbers them. */
    std::string importRoom (const std::vector<std::string>& rates)
    {
        std::vector<std::string> words { VELTRA_PROGRAM, "import", "-o", path ("room.xml"), "--project", "Living room" };

        for (const auto& rate : rates)
            for (const auto& channel : kChannels)
                words.push_back (roomFile (channel + "_" + rate));

        EXPECT_EQ (0, run (words).status);
        return path ("room.xml");
    }

    static void expectSuccess (const Ending& ending)
    {
        EXPECT_EQ (0, ending.status) << ending.err;
        EXPECT_EQ ("", ending.err);
    }

    std::unique_ptr<receiver::Receiver> theReceiver;
    std::vector<std::string> furtherOptions;
};

TEST_F (EndToEnd, TheLivingRoomArrivesByteForByte)
{
    startReceiver();
    const auto info = veltra ({ "info" });
    expectSuccess (info);

    for (const char* const words : { "Morvane, Theatre 71, Main Zone", "MV71-004209", "44100 48000 96000 Hz", "SW           number 3 ",
                                     "BR           number 7    loudspeaker  no EQ", "3  empty", "sweep, 96000 Hz: ", "sub, 44100, 48000, 96000 Hz: " })
        EXPECT_NE (std::string::npos, info.out.find (words)) << words << "\n" << info.out;

    const std::vector<std::string> rates { "44100", "48000", "96000" };
    const auto ending = veltra ({ "download", "--slot", "1", importRoom (rates) });
    expectSuccess (ending);
    EXPECT_NE (std::string::npos, ending.out.find ("\n100 %  2.")) << ending.out; // megabytes on the wire

    const auto slot = theReceiver->slots().at (1);
    EXPECT_EQ (receiver::Slot::State::occupied, slot.state);
    EXPECT_EQ ("Living room", slot.name);
    EXPECT_EQ (8u, slot.channels.size());
    ASSERT_EQ (3u, slot.blocks.size());

    for (std::size_t i = 0; i < rates.size(); ++i)
    {
        std::string meant;

        for (const auto& channel : kChannels)
        {
            const auto samples = readMonoAudio (roomFile (channel + "_" + rates[i])).samples;
            meant.append (reinterpret_cast<const char*> (samples.data()), samples.size() * sizeof (float));
        }

        EXPECT_TRUE (meant == slot.blocks[i].bytes) << rates[i];
    }

    EXPECT_NE (std::string::npos, veltra ({ "slots" }).out.find ("1  \"Living room\": FL FR C SW SL SR BL BR\n"));
    EXPECT_EQ (kExitSlotInUse, veltra ({ "download", "--slot", "1", path ("room.xml") }).status);
    expectSuccess (veltra ({ "remove", "--slot", "1" }));
    EXPECT_EQ (receiver::Slot::State::empty, theReceiver->slots().at (1).state);
}

TEST_F (EndToEnd, ADualRateDownloadOfTwelveChannelsIsWhatConvertMakes)
{
    startReceiver (receiver::shippedProfile ("twelve"), {});

    // The room has no loudspeakers at the ceiling: those at the floor lend their filters.
    std::string map;
    for (const char* const rate : { "44100", "48000", "96000" })
        for (const std::string channel : { "FL", "FR", "C", "SW", "SL", "SR", "BL", "BR", "TFL", "TFR", "TBL", "TBR" })
            map += channel + " " + rate + " "
                   + std::filesystem::absolute (roomFile (channel.substr (channel[0] == 'T' ? 1 : 0) + "_" + rate)).string() + "\n";

    write ("map.txt", map);
    ASSERT_EQ (0, run ({ VELTRA_PROGRAM, "import", "-o", path ("room.xml"), "--map", path ("map.txt") }).status);
    expectSuccess (veltra ({ "download", "--slot", "0", path ("room.xml") }));

    const auto blocks = theReceiver->slots().at (0).blocks;
    ASSERT_EQ (3u, blocks.size());

    for (const auto& block : blocks)
    {
        const auto ending = run ({ VELTRA_PROGRAM, "convert", "--force", path ("room.xml"), "--topology", "VLFIR2", "--rate",
                                   std::to_string (block.sampleRate), "--taps", "2048", "--latency", "256", "-o", path ("blob") });
        EXPECT_EQ (0, ending.status) << ending.err;
        EXPECT_EQ (12 + 12 * (48 + 2 * 2048 * 4), block.bytes.size());
        EXPECT_TRUE (read (path ("blob")) == block.bytes) << block.sampleRate;
    }
}

TEST_F (EndToEnd, ARefusedDownloadEndsWithTheReceiversWords)
{
    using receiver::Fault;
    startReceiver();
    const auto file = importRoom ({ "44100", "48000", "96000" });

    const auto download = [&] (Fault fault)
    {
        theReceiver->setFaults ({ std::move (fault) });
        return veltra ({ "download", "--slot", "0", file, "--setting", "FilterDataChunkRetries=1", "--setting", "FilterDataChunkTimeout=100" });
    };

    auto ending = download ({ .action = Fault::Action::refuse, .type = "LoadFilter", .text = "The memory is worn out" });
    EXPECT_EQ (kExitReceiver, ending.status);
    EXPECT_EQ ("veltra: The receiver did not take the filters: The memory is worn out.\n", ending.err);

    ending = download ({ .action = Fault::Action::refuse, .type = "FilterDataChunk", .first = 7, .text = "No room" });
    EXPECT_EQ (kExitReceiver, ending.status);
    EXPECT_EQ ("veltra: The receiver did not take the filters: No room.\n", ending.err);

    ending = download ({ .action = Fault::Action::lose, .type = "FilterDataChunk", .first = 3 });
    EXPECT_EQ (kExitReceiver, ending.status);
    EXPECT_EQ ("veltra: The receiver did not take the filters: Filter data send failed, timeout.\n", ending.err);

    theReceiver->setFaults ({ { .action = Fault::Action::refuse, .type = "GetUnit", .text = "Not now" } });
    ending = veltra ({ "info" });
    EXPECT_EQ (kExitNoReceiver, ending.status);
    EXPECT_NE (std::string::npos, ending.err.find (theReceiver->address())) << ending.err;
}

TEST_F (EndToEnd, CtrlCCancelsADownloadOnTheReceiverToo)
{
    startReceiver();
    const auto file = importRoom ({ "44100", "48000", "96000" });
    start (line ({ "download", "--slot", "2", file }));
    waitFor ("out", "\n  0 %");
    sendSignal (SIGINT);
    const auto ending = finish();
    EXPECT_EQ (kExitCancelled, ending.status) << ending.out;
    EXPECT_EQ ("veltra: Cancelled; slot 2 of the receiver is incomplete.\n", ending.err);
    EXPECT_EQ (1u, theReceiver->messageCount ("DownloadCancelled"));
    EXPECT_LT (theReceiver->messageCount ("FilterData"), 3u);
}

/** On a busy machine the receiver may take longer over a stimulus than a host waits by default. */
class Measuring : public EndToEnd
{
protected:
    Measuring() { furtherOptions = { "--setting", "Timeout=off" }; }

    static receiver::Receiver::Options inTheRoom (double speed)
    {
        receiver::Receiver::Options options;
        options.measurement.room.folder = "examples/living-room";
        options.measurement.noise_dBFS = -std::numeric_limits<double>::infinity();
        options.measurement.speed = speed;
        return options;
    }

    /** The stimulus that the receiver describes. */
    static Eigen::VectorXf stimulus (const receiver::Profile& profile, unsigned kind, std::uint32_t rate)
    {
        for (const auto& entry : profile.stimulusInfo.stimulusinformation())
            if (static_cast<unsigned> (entry.stimulus()) == kind && entry.samplerate() == rate)
            {
                std::string error;
                const auto description = tools::parseStimulus (kind, rate, entry.information(), error);
                EXPECT_TRUE (description) << error;
                return tools::makeStimulus (*description);
            }

        ADD_FAILURE() << "no such stimulus";
        return {};
    }

    /** Largest difference, in dB relative to the largest sample of `wanted`, where `measured` lies somewhere behind
        an unknown silence. */
    static double difference_dB (const Eigen::VectorXf& measured, const Eigen::VectorXf& wanted)
    {
        Eigen::Index peak = 0, wantedPeak = 0;
        measured.cwiseAbs().maxCoeff (&peak);
        const float level = wanted.cwiseAbs().maxCoeff (&wantedPeak);
        const auto begin = peak - wantedPeak;

        if (begin < 0 || begin + wanted.size() > measured.size())
            return 0.0;

        Eigen::VectorXf rest = measured;
        rest.segment (begin, wanted.size()) -= wanted;
        return 20.0 * std::log10 (static_cast<double> (rest.cwiseAbs().maxCoeff() / level));
    }
};

TEST_F (Measuring, TheMeasuredRoomIsTheReceiversRoomWithAndWithoutTheCorrection)
{
    const auto profile = receiver::shippedProfile ("seven-one");
    startReceiver (inTheRoom (20.0));
    const auto sweep = stimulus (profile, 0, 48000);
    const auto room = vectorOf (readMonoAudio (roomFile ("measured_FL_48000")).samples);
    const auto filter = vectorOf (readMonoAudio (roomFile ("FL_48000")).samples);

    const auto measure = [&] (const std::string& name)
    {
        const auto ending = veltra ({ "measure", "--channel", "FL", "--tail", "2", "-o", path (name) });
        expectSuccess (ending);
        EXPECT_EQ (std::string::npos, ending.out.find ("missing")) << ending.out;
        EXPECT_FALSE (theReceiver->measurement().isMeasuring);
        return tools::deconvolve (vectorOf (readMonoAudio (path (name)).samples), sweep);
    };

    EXPECT_LT (difference_dB (measure ("bare.wav"), room), -80.0);

    expectSuccess (veltra ({ "download", "--slot", "3", importRoom ({ "44100", "48000", "96000" }) }));
    EXPECT_EQ ("Slot 3 is in use\n", veltra ({ "slot", "3" }).out);
    EXPECT_EQ ("Filtering is on\n", veltra ({ "filtering", "on" }).out);
    EXPECT_LT (difference_dB (measure ("corrected.wav"), dsp::fftConvolve (room, filter)), -80.0);
}

// What the sections are meant to play is computed in double precision, for as long as the room is listened to.
TEST_F (Measuring, ADesignedFilterIsHeardAsItWasDesigned)
{
    auto profile = receiver::shippedProfile ("stereo");
    auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);
    configuration.clear_samplerates();
    configuration.add_samplerates (48000);
    profile.topologyInfo.mutable_topologies (1)->set_information ("NbrOfFIRTaps=1000;NbrOfIIRSections=30");
    startReceiver (profile, inTheRoom (20.0));

    Ending ending = run ({ VELTRA_PROGRAM, "design", roomFile ("FL_48000"), roomFile ("FR_48000"), "-o", path ("designed.xml"),
                           "--taps", "1000", "--sections", "30" });
    ASSERT_EQ (0, ending.status) << ending.err;
    expectSuccess (veltra ({ "download", "--slot", "1", path ("designed.xml") }));
    expectSuccess (veltra ({ "slot", "1" }));
    expectSuccess (veltra ({ "filtering", "on" }));
    expectSuccess (veltra ({ "measure", "--channel", "FR", "--tail", "2", "-o", path ("capture.wav") }));

    Eigen::VectorXf filter = Eigen::VectorXf::Zero (48000);
    const auto wanted = vectorOf (readMonoAudio (roomFile ("FR_48000")).samples);
    filter.head (wanted.size()) = wanted;
    const auto design = dsp::designFIIR (filter, 1000, 30, 48000.0);
    filter << design.fir, dsp::impulseResponse (design.sections, 47000).cast<float>();

    const auto room = vectorOf (readMonoAudio (roomFile ("measured_FR_48000")).samples);
    const auto measured = tools::deconvolve (vectorOf (readMonoAudio (path ("capture.wav")).samples), stimulus (profile, 0, 48000));
    EXPECT_LT (difference_dB (measured, dsp::fftConvolve (room, filter)), -80.0);
}

TEST_F (Measuring, DualRateReceiversPlayTheCorrectionToo)
{
    const auto room = vectorOf (readMonoAudio (roomFile ("measured_FL_48000")).samples);
    const auto filter = vectorOf (readMonoAudio (roomFile ("FL_48000")).samples);
    const auto file = importRoom ({ "44100", "48000", "96000" });

    for (const char* const topology : { "VLFIR", "VLFIR2" })
    {
        auto profile = receiver::shippedProfile ("seven-one");

        for (auto& entry : *profile.topologyInfo.mutable_topologies())
        {
            entry.set_name (topology);
            entry.set_information ("NbrOfFIRTaps=2048");
        }

        startReceiver (profile, inTheRoom (20.0));
        expectSuccess (veltra ({ "download", "--slot", "0", file, "--setting", "MaxFilterAttenuation=0" }));
        expectSuccess (veltra ({ "filtering", "on" }));
        expectSuccess (veltra ({ "measure", "--channel", "FL", "--tail", "2", "-o", path ("corrected.wav"), "--force" }));
        const auto corrected = tools::deconvolve (vectorOf (readMonoAudio (path ("corrected.wav")).samples), stimulus (profile, 0, 48000));

        // The structure's own error is -74 dB of energy, spread over a response of half a second.
        EXPECT_LT (difference_dB (corrected, dsp::fftConvolve (room, filter)), -65.0) << topology;
    }
}

TEST_F (Measuring, CtrlCStopsTheStimulusAndLeavesTheMode)
{
    startReceiver (inTheRoom (1.0));
    start (line ({ "measure", "--channel", "FL,FR", "-o", path ("capture.wav") }));
    ASSERT_TRUE (theReceiver->waitFor ([&] { return theReceiver->measurement().isMeasuring; }));
    waitFor ("out", " packets");
    sendSignal (SIGINT);
    const auto ending = finish();
    EXPECT_EQ (kExitCancelled, ending.status);
    EXPECT_EQ ("veltra: Cancelled; nothing was written.\n", ending.err);
    EXPECT_EQ (1u, theReceiver->messageCount ("StopStimulus"));
    EXPECT_FALSE (theReceiver->measurement().isMeasuring);
}

TEST_F (Measuring, AMinuteAt96000HzComesWholeAtTwentyTimesRealTime)
{
    auto profile = receiver::shippedProfile ("seven-one");

    for (auto& entry : *profile.stimulusInfo.mutable_stimulusinformation())
        if (entry.stimulus() == veltraio::Stimulus_kNoise)
            entry.set_information ("Seconds=60;Level_dBFS=-20;Seed=7");

    auto options = inTheRoom (20.0);
    options.measurement.room = {}; // a plain delay, so that every sample can be compared
    startReceiver (profile, std::move (options));

    const auto ending = veltra ({ "measure", "--channel", "C", "--stimulus", "noise", "--rate", "96000", "--longest", "90",
                                  "-o", path ("minute.wav") });
    expectSuccess (ending);

    const auto captured = vectorOf (readMonoAudio (path ("minute.wav")).samples);
    EXPECT_LT (difference_dB (captured, stimulus (profile, 1, 96000)), -100.0);
}

TEST_F (EndToEnd, ControlsReachTheReceiver)
{
    startReceiver();
    expectSuccess (veltra ({ "volume", "0.5" }));
    EXPECT_FLOAT_EQ (0.35f, theReceiver->settings().volume);
    EXPECT_EQ ("Channel SW is attenuated by 3 dB of at most 12 dB\n", veltra ({ "attenuation", "SW", "3" }).out);
    EXPECT_FLOAT_EQ (0.25f, theReceiver->settings().attenuation[3]);
    expectSuccess (veltra ({ "slot", "2" }));
    EXPECT_EQ (2u, theReceiver->settings().activeSlot);
    expectSuccess (veltra ({ "filtering", "on" }));
    EXPECT_TRUE (theReceiver->settings().isFiltering);
}

}

}
