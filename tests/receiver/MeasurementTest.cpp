// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "dsp/FftConvolve.h"
#include "tests/receiver/Sender.h"
#include "tests/support/Measured.h"
#include "tools/receiver/network/Receiver.h"
#include "tools/receiver/sound/NoiseSource.h"
#include "tools/veltra/measure/Deconvolution.h"

namespace veltra::receiver {
namespace {

using namespace veltraio;
using namespace std::chrono_literals;
using test::difference_dB;

constexpr double kSilence = -std::numeric_limits<double>::infinity();

MeasurementOptions inTheLivingRoom()
{
    MeasurementOptions options;
    options.room.folder = "examples/living-room";
    options.noise_dBFS = kSilence;
    options.speed = 1000.0;
    options.packetSamples = MeasurementOptions::kMaxPacketSamples;
    return options;
}

MeasurementOptions noiseAt (double speed)
{
    MeasurementOptions options;
    options.noise_dBFS = -60.0;
    options.speed = speed;
    return options;
}

OperationModeInfo measurementAt (std::uint32_t sampleRate)
{
    OperationModeInfo message;
    message.set_mode (OperationMode_kMeasurement);
    message.set_samplerate (sampleRate);
    return message;
}

OperationModeInfo audition()
{
    OperationModeInfo message;
    message.set_mode (OperationMode_kAudition);
    return message;
}

StartStimulus stimulusOn (std::vector<std::uint32_t> channels, std::uint32_t sampleRate = 48000,
                          veltraio::Stimulus type = Stimulus_kSineLogSweep)
{
    StartStimulus message;
    message.set_deviceindex (0);
    message.set_stimulustype (type);
    message.set_samplerate (sampleRate);
    message.mutable_channels()->Assign (channels.begin(), channels.end());
    return message;
}

/** A host that measures: it keeps what the microphone heard, apart from the replies. */
class Measurer
{
public:
    explicit Measurer (std::uint16_t port) : host (port) {}

    /** Sends a command and reads until its acknowledgement; see TestHost::command. */
    std::string command (const google::protobuf::MessageLite& message)
    {
        host.send (message);
        while (const auto envelope = host.receive())
        {
            if (take (*envelope))
                continue;
            Acknowledge answer;
            answer.ParseFromString (envelope->body);
            return answer.ok() ? "ok" : answer.errormessage();
        }
        return "nothing";
    }

    void captureAtLeast (std::size_t samples)
    {
        while (capture.size() < samples)
        {
            const auto envelope = host.receive();
            ASSERT_TRUE (envelope);
            ASSERT_TRUE (take (*envelope));
        }
    }

    /** Plays on the channels and captures until it is over, in a measurement of its own. */
    Eigen::VectorXf measure (const StartStimulus& stimulus, std::size_t samples)
    {
        capture.clear();
        EXPECT_EQ (command (measurementAt (stimulus.samplerate())), "ok");
        EXPECT_EQ (command (stimulus), "ok");
        captureAtLeast (capture.size() + samples);
        EXPECT_EQ (command (audition()), "ok");
        return Eigen::Map<const Eigen::VectorXf> (capture.data(), static_cast<Eigen::Index> (capture.size()));
    }

    std::vector<float> capture;
    std::uint32_t nextPacket = 0;
    TestHost host;

private:
    bool take (const TestHost::Envelope& envelope)
    {
        AudioData packet;
        if (envelope.messageId != TestHost::idOf (packet))
            return false;
        EXPECT_TRUE (packet.ParseFromString (envelope.body));
        if (packet.packetnumber() == 0)
            nextPacket = 0;
        EXPECT_EQ (packet.packetnumber(), nextPacket++);
        capture.insert (capture.end(), packet.data().begin(), packet.data().end());
        return true;
    }
};

Eigen::VectorXf sweepAt (std::uint32_t sampleRate)
{
    return test::stimulusOf (shippedProfile ("seven-one"), sampleRate);
}

class ReceiverMeasurement : public testing::Test
{
protected:
    void start (const MeasurementOptions& measurement, const Profile& profile = shippedProfile ("seven-one"))
    {
        Receiver::Options options;
        options.measurement = measurement;
        measurer.reset();
        receiver = std::make_unique<Receiver> (profile, options);
        measurer = std::make_unique<Measurer> (receiver->port());
    }

    std::string command (const google::protobuf::MessageLite& message) { return measurer->command (message); }

    /** The response that a measurement on some channels gives. */
    Eigen::VectorXf respond (const std::vector<std::uint32_t>& channels, std::uint32_t sampleRate = 48000)
    {
        return tools::deconvolve (measurer->measure (stimulusOn (channels, sampleRate), sampleRate * 25 / 4),
                                  sweepAt (sampleRate));
    }

    void expectNoPackets()
    {
        measurer->host.send (Ping());
        ASSERT_TRUE (measurer->host.receiveA<Pong>()) << "packets after the measurement";
    }

    /** Makes the rate of 48000 Hz one of FIR filters, puts one into slot 0 and switches filtering on. */
    void startFiltering (const std::vector<float>& taps, std::uint32_t channels, std::uint32_t wantedTaps)
    {
        auto profile = shippedProfile ("seven-one");
        profile.topologyInfo.mutable_topologies (1)->set_information ("NbrOfFIRTaps=" + std::to_string (wantedTaps));
        start (inTheLivingRoom(), profile);
        Sender sender (receiver->port(), 0);
        std::string bytes (taps.size() * sizeof (float), 0);
        std::memcpy (bytes.data(), taps.data(), bytes.size());
        EXPECT_EQ (sender.load (channels, static_cast<std::uint32_t> (bytes.size())), "ok");
        std::vector<std::uint32_t> indices;

        for (std::uint32_t i = 0; i < channels; ++i)
        {
            EXPECT_EQ (sender.channel (i, -6.0f, 1.0f, i == 0), "ok");
            indices.push_back (i);
        }

        EXPECT_EQ (sender.data (48000, static_cast<std::uint32_t> (bytes.size()), indices), "ok");
        EXPECT_EQ (sender.chunk (0, bytes), "ok");
        FilteringState on;
        on.set_deviceindex (0);
        on.set_isfiltering (true);
        EXPECT_EQ (command (on), "ok");
    }

    std::unique_ptr<Receiver> receiver;
    std::unique_ptr<Measurer> measurer;
};

TEST_F (ReceiverMeasurement, StreamsTheMicrophonesNoiseInNumberedPacketsAtThePaceOfTheSpeed)
{
    start (noiseAt (10.0));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ (command (measurementAt (48000)), "ok");
    measurer->captureAtLeast (48000);
    // Never ahead of the clock, less the last packet; how far behind is the machine's affair.
    EXPECT_GE (std::chrono::steady_clock::now() - begun, 98ms);
    EXPECT_EQ (command (audition()), "ok");

    tools::NoiseSource noise (-60.0);
    double energy = 0.0;
    for (const auto sample : measurer->capture)
    {
        ASSERT_EQ (sample, noise.next());
        energy += static_cast<double> (sample) * sample;
    }
    EXPECT_NEAR (10.0 * std::log10 (energy / static_cast<double> (measurer->capture.size())), -60.0, 0.1);
}

TEST_F (ReceiverMeasurement, HearsTheRoomOfTheChannelsThatPlay)
{
    start (inTheLivingRoom());
    Room room (inTheLivingRoom().room);
    EXPECT_LT (difference_dB (respond ({ 0 }), room.response ("FL", 48000)), -80.0);
    EXPECT_LT (difference_dB (respond ({ 3, 1, 3 }, 96000), room.response ("FR", 96000) + room.response ("SW", 96000)),
               -80.0);
}

TEST_F (ReceiverMeasurement, ARoomWithoutResponsesIsADelay)
{
    auto options = inTheLivingRoom();
    options.room = { {}, 5.0 };
    start (options);
    const auto stimulus = sweepAt (48000);
    const auto capture = measurer->measure (stimulusOn ({ 2 }), 300000);

    // Ten milliseconds of the profile's latency and five of the room's lie before the first sample, which is 0.
    Eigen::Index first = 0;
    while (first < capture.size() && std::abs (capture[first]) < 1e-6f)
        ++first;
    const auto begin = first - 1 - 720;
    ASSERT_GE (begin, 0);
    EXPECT_EQ (begin % MeasurementOptions::kMaxPacketSamples, 0) << "begins with a packet";
    EXPECT_LT ((capture.segment (first - 1, stimulus.size()) - stimulus).cwiseAbs().maxCoeff(), 1e-5f);
}

TEST_F (ReceiverMeasurement, AttenuationAndVolumeAreHeard)
{
    auto options = inTheLivingRoom();
    options.room = {};
    start (options);
    ChannelAttenuation attenuation;
    attenuation.set_deviceindex (0);
    attenuation.set_channel (0);
    attenuation.set_attenuation (0.5f);
    EXPECT_EQ (command (attenuation), "ok");
    Volume volume;
    volume.set_deviceindex (0);
    volume.set_volume (DeviceModel::kReferenceVolume / 2.0f);
    EXPECT_EQ (command (volume), "ok");

    // Half of the profile's 12 dB, and half of the amplitude.
    const auto capture = measurer->measure (stimulusOn ({ 0 }), 300000);
    EXPECT_NEAR (20.0 * std::log10 (capture.norm() / sweepAt (48000).norm()), -6.0 - 6.02, 0.01);
}

TEST_F (ReceiverMeasurement, TellsTheTruthAboutTheStimulus)
{
    auto options = inTheLivingRoom();
    options.speed = 5.0;
    start (options);
    EXPECT_EQ (command (measurementAt (48000)), "ok");
    EXPECT_FALSE (receiver->measurement().stimulus.isPlaying);
    EXPECT_EQ (command (stimulusOn ({ 0 })), "ok");
    EXPECT_TRUE (receiver->measurement().stimulus.isPlaying);

    const auto begun = measurer->capture.size();
    measurer->captureAtLeast (begun + 96000);
    const auto status = receiver->measurement().stimulus;
    EXPECT_TRUE (status.isPlaying);
    EXPECT_GT (status.progress, 0.35f);
    measurer->captureAtLeast (begun + 5 * 48000 + 20000);
    EXPECT_TRUE (receiver->waitFor ([&] { return ! receiver->measurement().stimulus.isPlaying; }));

    EXPECT_EQ (command (stimulusOn ({ 0 }, 48000, Stimulus_kNoise)), "ok");
    StopStimulus stop;
    stop.set_deviceindex (0);
    EXPECT_EQ (command (stop), "ok");
    EXPECT_FALSE (receiver->measurement().stimulus.isPlaying);
}

TEST_F (ReceiverMeasurement, RefusesWhatItCannotPlay)
{
    start (inTheLivingRoom());
    EXPECT_EQ (command (stimulusOn ({ 0 }, 0)), "Not in measurement mode");
    EXPECT_EQ (command (measurementAt (88200)),
               "Measurement at 88200 Hz, which no configuration of the receiver offers");
    EXPECT_EQ (command (measurementAt (48000)), "ok");
    EXPECT_EQ (command (stimulusOn ({ 0 }, 44100)), "Stimulus at 44100 Hz in a measurement at 48000 Hz");
    EXPECT_EQ (command (stimulusOn ({})), "Stimulus without channels");
    EXPECT_EQ (command (stimulusOn ({ 0, 9 })), "No channel 9");

    Measurer second (receiver->port());
    EXPECT_EQ (second.command (measurementAt (48000)), "Another session measures");
    EXPECT_EQ (second.command (stimulusOn ({ 0 })), "Not in measurement mode");

    measurer.reset();
    EXPECT_TRUE (receiver->waitFor ([&] { return ! receiver->measurement().isMeasuring; }))
        << "it ends with its session";

    startFiltering (std::vector<float> (6), 2, 4);
    EXPECT_EQ (command (measurementAt (48000)), "ok");
    EXPECT_EQ (command (stimulusOn ({ 1 })),
               "The filter at 48000 Hz cannot be applied: 24 bytes where its topology takes 32");
}

TEST_F (ReceiverMeasurement, IsEnteredAndLeftManyTimesWithPacketsFlowing)
{
    start (noiseAt (100.0));
    for (int i = 0; i < 200; ++i)
    {
        EXPECT_EQ (command (measurementAt (48000)), "ok");
        measurer->captureAtLeast (measurer->capture.size() + 1);
        EXPECT_EQ (command (audition()), "ok");
        ASSERT_NO_FATAL_FAILURE (expectNoPackets());
    }
}

TEST_F (ReceiverMeasurement, WithoutAMicrophoneTheStimulusTakesItsTimeAllTheSame)
{
    auto profile = shippedProfile ("seven-one");
    profile.unit.set_capabilities (Unit::Caps_kVolume);
    auto options = inTheLivingRoom();
    options.speed = 100.0;
    start (options, profile);
    OperationModeInfo mode;
    mode.set_mode (OperationMode_kMeasurement);
    EXPECT_EQ (command (mode), "ok");
    EXPECT_EQ (command (stimulusOn ({ 0 })), "ok");
    EXPECT_TRUE (receiver->measurement().stimulus.isPlaying);
    EXPECT_TRUE (receiver->waitFor ([&] { return ! receiver->measurement().stimulus.isPlaying; }));
    EXPECT_EQ (command (audition()), "ok");
    EXPECT_TRUE (measurer->capture.empty());
}

/** The other structures are heard in the tests of the host program. */
TEST_F (ReceiverMeasurement, AppliesTheTapsGainAndDelayOfTheActiveSlot)
{
    startFiltering ({ 9.0f, 9.0f, 9.0f, 0.25f, 0.5f, -0.125f }, 2, 3);
    Room room (inTheLivingRoom().room);
    Eigen::VectorXf filter = Eigen::VectorXf::Zero (48 + 3);
    filter.tail (3) << 0.25f, 0.5f, -0.125f;
    const auto gain = std::pow (10.0f, -6.0f / 20.0f);
    EXPECT_LT (difference_dB (respond ({ 1 }), gain * dsp::fftConvolve (room.response ("FR", 48000), filter)), -80.0);
    EXPECT_LT (difference_dB (respond ({ 0 }), gain * room.response ("FL", 48000)), -80.0) << "a channel without EQ";
    EXPECT_LT (difference_dB (respond ({ 2 }), room.response ("C", 48000)), -80.0)
        << "a channel that the filter does not have";
}

TEST (Stimulus, HasTheLevelAndBandThatItsDescriptionSays)
{
    std::string error;
    const auto make = [&] (unsigned kind, const std::string& information) {
        const auto stimulus = tools::parseStimulus (kind, 48000, information, error);
        EXPECT_TRUE (stimulus) << error;
        return tools::makeStimulus (*stimulus);
    };
    const auto rms_dB = [] (const Eigen::VectorXf& samples) {
        return 20.0 * std::log10 (samples.norm() / std::sqrt (static_cast<double> (samples.size())));
    };

    const auto sweep = make (0, "Seconds=1;PadSeconds=0.5;Level_dBFS=-6");
    EXPECT_EQ (sweep.size(), 72000);
    EXPECT_NEAR (20.0 * std::log10 (sweep.cwiseAbs().maxCoeff()), -6.0, 0.05);
    EXPECT_EQ (sweep.tail (24000).norm(), 0.0f);

    EXPECT_NEAR (rms_dB (make (1, "Seconds=2;Level_dBFS=-30")), -30.0, 0.1);
    EXPECT_NE (make (1, "Seed=1").head (100), make (1, "Seed=2").head (100));

    // Whole periods are not to be had for all of the sines: the level is good to a few tenths of a dB.
    const auto level = make (2, "Seconds=4;Level_dBFS=-20");
    EXPECT_NEAR (rms_dB (level), -20.0, 0.3);
    // Twenty sines in phase would reach 16 dB above their RMS value.
    EXPECT_LT (20.0 * std::log10 (level.cwiseAbs().maxCoeff()), -20.0 + 12.0);
}

TEST (Stimulus, RefusesDescriptionsOutOfRange)
{
    std::string error;
    EXPECT_FALSE (tools::parseStimulus (3, 48000, "", error));
    EXPECT_FALSE (tools::parseStimulus (0, 0, "", error));
    for (const auto* information : { "Seconds=0", "Seconds=61", "Seconds=nan", "StartFrequency=24001", "Level_dBFS=1",
                                     "StartFrequency=100;EndFrequency=100" })
        EXPECT_FALSE (tools::parseStimulus (0, 48000, information, error)) << information;
    EXPECT_EQ (error, "StartFrequency is not below EndFrequency");
}

}
}
