// SPDX-License-Identifier: GPL-3.0-or-later
#include <limits>
#include <utility>

#include "dsp/FftConvolve.h"
#include "tests/support/Measured.h"
#include "tests/veltra/WithReceiver.h"
#include "tools/veltra/measure/Deconvolution.h"

namespace veltra::host {

namespace {

using test::difference_dB;
using test::stimulusOf;

Eigen::VectorXf audio (const std::filesystem::path& file)
{
    const auto samples = readMonoAudio (file).samples;
    return Eigen::Map<const Eigen::VectorXf> (samples.data(), static_cast<Eigen::Index> (samples.size()));
}

class EndToEnd : public WithReceiver
{
};

TEST_F (EndToEnd, TheLivingRoomArrivesByteForByte)
{
    startReceiver();
    auto ending = veltra ({ "info", "--log", path ("log"), "--log-level", "INFO" });
    expectSuccess (ending);
    expectParts (ending.out, { "Morvane, Theatre 71, Main Zone", "MV71-004209", "44100 48000 96000 Hz",
                               "SW           number 3 ", "0  FL           number 0    loudspeaker  EQ",
                               "BR           number 7    loudspeaker  no EQ", "up to 12 dB", "3  empty",
                               " 96000 Hz  FIR, 32768 taps\n", "sweep, 96000 Hz: ", "sub, 44100, 48000, 96000 Hz: " });
    EXPECT_TRUE (
        read (path ("log"))
            .ends_with ("] Device is specified as TCP:" + theReceiver->address() + ", skipping UPnP search\n"));

    ending = veltra ({ "download", "--slot", "1", importRoom() });
    expectSuccess (ending);
    expectParts (ending.out, { "\n  SW      ->  SW (number 3)\n",
                               ", plays without EQ\nPlain FIR filters can drive the receiver above full scale: ",
                               "\n2.10 MB in " });

    const auto slot = theReceiver->slots().at (1);
    EXPECT_EQ (receiver::Slot::State::occupied, slot.state);
    EXPECT_EQ ("Living room", slot.name);
    EXPECT_EQ (8u, slot.channels.size());
    ASSERT_EQ (3u, slot.blocks.size());

    for (const auto& block : slot.blocks)
    {
        std::string meant;

        for (const std::string channel : { "FL", "FR", "C", "SW", "SL", "SR", "BL", "BR" })
        {
            const auto samples = readMonoAudio (roomFile (channel + "_" + std::to_string (block.sampleRate))).samples;
            meant.append (reinterpret_cast<const char*> (samples.data()), samples.size() * sizeof (float));
        }

        EXPECT_TRUE (meant == block.bytes) << block.sampleRate;
    }

    EXPECT_TRUE (ending.out.ends_with ("Slot 1 holds \"Living room\": FL FR C SW SL SR BL BR\n")) << ending.out;
    expectSuccess (veltra ({ "remove", "--slot", "1" }));
    EXPECT_EQ (receiver::Slot::State::empty, theReceiver->slots().at (1).state);
}

TEST_F (EndToEnd, ADualRateDownloadIsWhatConvertMakes)
{
    auto profile = receiver::shippedProfile ("seven-one");
    profile.topologyInfo = receiver::shippedProfile ("twelve").topologyInfo;
    startReceiver (profile);
    expectSuccess (veltra ({ "download", "--slot", "0", importRoom ({ "--for", "seven-one" }) }));
    const auto blocks = theReceiver->slots().at (0).blocks;
    ASSERT_EQ (3u, blocks.size());

    for (const auto& block : blocks)
    {
        const auto ending = plainVeltra ({ "convert", "--force", path ("room.xml"), "--topology", "VLFIR2", "--rate",
                                           std::to_string (block.sampleRate), "--taps", "2048", "-o", path ("blob") });
        EXPECT_EQ (0, ending.status) << ending.err;
        EXPECT_EQ (12 + 8 * (48 + 2 * 2048 * 4), block.bytes.size());
        EXPECT_TRUE (read (path ("blob")) == block.bytes) << block.sampleRate;
    }
}

TEST_F (EndToEnd, ARefusedDownloadEndsWithTheReceiversWords)
{
    startReceiver();
    importRoom();

    for (const auto& [fault, words] :
         { std::pair ("refuse LoadFilter 1 'The memory is worn out'", "The memory is worn out"),
           std::pair ("refuse FilterDataChunk 7 'No room'", "No room"),
           std::pair ("lose FilterDataChunk 3", "Filter data send failed, timeout") })
    {
        setFaults (fault);
        expectOneSentence (veltra ({ "download", "--slot", "0", path ("room.xml"), "--setting",
                                     "FilterDataChunkRetries=1", "--setting", "FilterDataChunkTimeout=100" }),
                           kExitReceiver,
                           std::string ("The receiver did not take the filters: ") + words
                               + ". The receiver says that slot 0 is empty now.\n");
    }

    setFaults ("refuse GetUnit 1 'Not now'");
    expectOneSentence (veltra ({ "info" }), kExitNoReceiver, theReceiver->address());
}

TEST_F (EndToEnd, CtrlCCancelsADownloadOnTheReceiverToo)
{
    startReceiver();
    startVeltra ({ "download", "--json", "--slot", "2", importRoom() });
    waitFor ("out", "\"progress\"");
    sendSignal (SIGINT);
    expectOneSentence (finish(), kExitCancelled, "Cancelled; slot 2 of the receiver is incomplete.");
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

    /** What comes back of a sweep at 48000 Hz. */
    Eigen::VectorXf measure (const std::string& channel)
    {
        const auto ending =
            veltra ({ "measure", "--force", "--channel", channel, "--tail", "2", "-o", path ("capture.wav") });
        expectSuccess (ending);
        EXPECT_EQ (std::string::npos, ending.out.find ("missing")) << ending.out;
        EXPECT_FALSE (theReceiver->measurement().isMeasuring);
        return tools::deconvolve (audio (path ("capture.wav")),
                                  stimulusOf (receiver::shippedProfile ("seven-one"), 48000));
    }

    void filterBySlot (const std::string& slot)
    {
        EXPECT_EQ ("Slot " + slot + " is in use\n", veltra ({ "slot", slot }).out);
        EXPECT_EQ ("Filtering is on\n", veltra ({ "filtering", "on" }).out);
    }
};

TEST_F (Measuring, TheMeasuredRoomIsTheReceiversRoomWithAndWithoutTheCorrection)
{
    startReceiver (receiver::shippedProfile ("seven-one"), inTheRoom (20.0));
    const auto room = audio (roomFile ("measured_FL_48000"));
    EXPECT_LT (difference_dB (measure ("FL"), room), -80.0);

    expectSuccess (veltra ({ "download", "--slot", "3", importRoom() }));
    filterBySlot ("3");
    EXPECT_LT (difference_dB (measure ("FL"), dsp::fftConvolve (room, audio (roomFile ("FL_48000")))), -80.0);
}

/** What each structure plays differs from what was meant by its own error alone. */
TEST_F (Measuring, FiltersAreHeardAsTheyWereMeantInEachOtherStructure)
{
    const std::vector<std::string> files { roomFile ("FL_48000"), roomFile ("FR_48000") };

    struct
    {
        const char *topology, *information;
        std::vector<std::string> makeDescription;
        double bound_dB;
    } const cases[] {
        { "FIIR", "NbrOfFIRTaps=1000;NbrOfIIRSections=30", { "design", "--taps", "1000", "--sections", "30" }, -55.0 },
        { "VLFIR", "NbrOfFIRTaps=2048", { "import" }, -65.0 },
        { "VLFIR2", "NbrOfFIRTaps=2048", { "import" }, -65.0 }
    };

    for (auto [topology, information, words, bound_dB] : cases)
    {
        auto profile = receiver::shippedProfile ("stereo");
        auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);
        configuration.clear_samplerates();
        configuration.add_samplerates (48000);

        for (auto& entry : *profile.topologyInfo.mutable_topologies())
        {
            entry.set_name (topology);
            entry.set_information (information);
        }

        startReceiver (profile, inTheRoom (20.0));
        words.insert (words.end(), { "--force", "-o", path ("filters.xml") });
        words.insert (words.end(), files.begin(), files.end());
        const auto made = plainVeltra (words);
        ASSERT_EQ (0, made.status) << made.err;
        expectSuccess (
            veltra ({ "download", "--slot", "0", path ("filters.xml"), "--setting", "MaxFilterAttenuation=0" }));
        filterBySlot ("0");

        const auto expected = dsp::fftConvolve (audio (roomFile ("measured_FR_48000")), audio (roomFile ("FR_48000")));
        EXPECT_LT (difference_dB (measure ("FR"), expected), bound_dB) << topology;
    }
}

TEST_F (Measuring, CtrlCStopsTheStimulusAndLeavesTheMode)
{
    for (const int number : { SIGINT, SIGTERM })
    {
        startReceiver (receiver::shippedProfile ("seven-one"), inTheRoom (1.0));
        startVeltra ({ "measure", "--channel", "SW,1", "-o", path ("capture.wav") });
        ASSERT_TRUE (theReceiver->waitFor ([&] { return theReceiver->measurement().stimulus.progress > 0.1f; }));
        sendSignal (number);
        expectOneSentence (finish(), kExitCancelled, "is in " + path ("capture.part.wav").string());
        EXPECT_GT (readMonoAudio (path ("capture.part.wav")).samples.size(), 9600u);
        std::filesystem::remove (path ("capture.part.wav"));
        EXPECT_FALSE (std::filesystem::exists (path ("capture.wav"))
                      || std::filesystem::exists (path ("capture.wav.part")));
        EXPECT_EQ (1u, theReceiver->messageCount ("StopStimulus"));
        EXPECT_FALSE (theReceiver->measurement().isMeasuring);

        veltraio::StartStimulus stimulus;
        stimulus.ParseFromString (theReceiver->messages ("StartStimulus").at (0).body);
        EXPECT_EQ (std::vector<std::uint32_t> ({ 3, 1 }),
                   std::vector<std::uint32_t> (stimulus.channels().begin(), stimulus.channels().end()));
    }
}

/** The connection ends while the sweep plays, and without a time-out a host would wait for ever. */
TEST_F (Measuring, WhatWasRecordedStaysWhenTheConnectionEndsOrTheDiskIsFull)
{
    startReceiver (receiver::shippedProfile ("seven-one"), inTheRoom (20.0));
    setFaults ("close GetStimulusState 3");
    const auto endless = std::exchange (furtherOptions, {});
    std::filesystem::create_symlink (path ("elsewhere"), path ("lost.part.wav")); // not ours to write to
    auto ending = veltra ({ "measure", "--channel", "FL", "-o", path ("lost.wav") });
    expectOneSentence (ending, kExitReceiver, "is in " + path ("lost.part-2.wav").string());
    EXPECT_GT (readMonoAudio (path ("lost.part-2.wav")).samples.size(), 0u);
    EXPECT_FALSE (std::filesystem::exists (path ("elsewhere")));

    setFaults ("");
    furtherOptions = endless;
    ending = veltra ({ "measure", "--channel", "FL", "--impulse", path ("fl.wav"), "-o", "/dev/full" });
    expectOneSentence (ending, kExitOutput, "is in " + path ("tmp/full.part.wav").string());
    EXPECT_FALSE (std::filesystem::exists (path ("fl.wav")));
    EXPECT_TRUE (std::filesystem::remove (path ("tmp/full.part.wav")));
}

}

}
