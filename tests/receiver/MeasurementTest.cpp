// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include "tests/receiver/ModelHost.h"
#include "tests/support/Measured.h"
#include "tools/receiver/sound/Correction.h"
#include "tools/receiver/sound/NoiseSource.h"

namespace veltra::receiver {
namespace {

using namespace std::chrono_literals;

constexpr double kSilence = -std::numeric_limits<double>::infinity();

/** As fast as the machine can. */
const MeasurementOptions kFast { { "examples/living-room" }, 1000.0, kSilence, MeasurementOptions::kMaxPacketSamples };

const std::string kAudition = "OperationModeInfo mode: OperationMode_kAudition";
const std::string kMeasurement = "OperationModeInfo mode: OperationMode_kMeasurement";
const std::string kMeasurementAt48000 = kMeasurement + " sampleRate: 48000";
const std::string kStimulusState = "Request requestType: RequestType_kGetStimulusState deviceIndex: 0";

std::string sweepOn (const std::string& channels, int sampleRate = 48000)
{
    return "StartStimulus deviceIndex: 0 stimulusType: Stimulus_kSineLogSweep sampleRate: "
           + std::to_string (sampleRate) + " channels: [" + channels + "]";
}

/** A host that keeps what the microphone of a model heard. */
class ReceiverMeasurement : public testing::Test
{
protected:
    void start (const MeasurementOptions& options, const Profile& profile = shippedProfile ("seven-one"))
    {
        host.reset();
        capture.clear();
        model.emplace (profile, options, nullptr);
        host.emplace (*model);
        host->conversation.send = [this] (const auto& message) {
            return take (dynamic_cast<const veltraio::AudioData&> (message));
        };
    }

    void expectOk (const std::string& message) { EXPECT_EQ ("ok", host->say (message)) << message; }

    /** Waits for so many samples from now on. */
    void waitForCapture (std::size_t samples)
    {
        std::unique_lock guard (lock);
        EXPECT_TRUE (
            changed.wait_for (guard, 60s, [&, end = capture.size() + samples] { return capture.size() >= end; }));
    }

    /** Plays a sweep and captures in a measurement of its own, whose stream ends with it. */
    Eigen::VectorXf measure (const std::string& channels)
    {
        expectOk (kMeasurementAt48000);
        expectOk (sweepOn (channels));
        waitForCapture (300000);
        expectOk (kAudition);
        return Eigen::Map<const Eigen::VectorXf> (capture.data(), static_cast<Eigen::Index> (capture.size()));
    }

    bool take (const veltraio::AudioData& packet)
    {
        const std::scoped_lock guard (lock);
        nextPacket = capture.empty() ? 0 : nextPacket + 1;
        EXPECT_EQ (nextPacket, packet.packetnumber());
        capture.insert (capture.end(), packet.data().begin(), packet.data().end());
        changed.notify_all();
        return true;
    }

    std::mutex lock;
    std::condition_variable changed;
    std::uint32_t nextPacket = 0;
    std::vector<float> capture;
    std::optional<DeviceModel> model; // calls take() until it is destroyed
    std::optional<ModelHost> host;
};

TEST_F (ReceiverMeasurement, StreamsTheMicrophonesNoiseInNumberedPacketsAtThePaceOfTheSpeed)
{
    start ({ {}, 10.0, -60.0, 512 });
    const auto begun = std::chrono::steady_clock::now();
    expectOk (kMeasurementAt48000);
    waitForCapture (48000);
    // Never ahead of the clock, less the last packet; a busy machine may fall behind.
    EXPECT_GE (std::chrono::steady_clock::now() - begun, 98ms);
    expectOk (kAudition);

    tools::NoiseSource noise (-60.0);

    for (const auto sample : capture)
        ASSERT_EQ (noise.next(), sample);
}

TEST_F (ReceiverMeasurement, HearsTheSumOfTheChannelsWithVolumeAttenuationAndDelay)
{
    start ({ { {}, 5.0 }, 1000.0, kSilence, MeasurementOptions::kMaxPacketSamples });
    expectOk ("ChannelAttenuation deviceIndex: 0 channel: 2 attenuation: 0.5"); // of the profile's 12 dB
    expectOk ("Volume deviceIndex: 0 volume: 0.35");                            // half of the reference
    const Eigen::VectorXf wanted =
        0.5f * (1.0f + std::pow (10.0f, -6.0f / 20.0f)) * test::stimulusOf (shippedProfile ("seven-one"), 48000);
    const auto heard = measure ("2, 5, 2");
    Eigen::Index first = 0;

    while (first < heard.size() && std::abs (heard[first]) < 1e-7f)
        ++first;

    // The profile's latency of 10 ms and the room's 5 ms come before the first sample, which is 0.
    const auto begin = first - 1 - 720;
    ASSERT_GE (begin, 0);
    EXPECT_EQ (0, begin % MeasurementOptions::kMaxPacketSamples) << "starts with a packet";
    EXPECT_LT ((heard.segment (first - 1, wanted.size()) - wanted).cwiseAbs().maxCoeff(), 1e-5f);
}

TEST_F (ReceiverMeasurement, RefusesWhatItCannotPlayAndEndsWithItsSession)
{
    start (kFast);
    EXPECT_EQ ("Not in measurement mode", host->say (sweepOn ("0")));
    EXPECT_EQ ("Measurement at 88200 Hz, which no configuration of the receiver offers",
               host->say (kMeasurement + " sampleRate: 88200"));
    expectOk (kMeasurementAt48000);
    EXPECT_EQ ("Stimulus at 44100 Hz in a measurement at 48000 Hz", host->say (sweepOn ("0", 44100)));
    EXPECT_EQ ("No channel 9", host->say (sweepOn ("0, 9")));

    ModelHost second (*model, 2);
    EXPECT_EQ ("Another session measures", second.say (kMeasurementAt48000));
    EXPECT_EQ ("Not in measurement mode", second.say (sweepOn ("0")));
    model->sessionEnded (host->conversation);
    EXPECT_FALSE (model->measurement().isMeasuring);

    for (const auto& bad : { MeasurementOptions { {}, 0.0 }, MeasurementOptions { {}, 1.0, 1.0 },
                             MeasurementOptions { {}, 1.0, 0.0, 0 }, MeasurementOptions { { {}, 1001.0 } } })
        EXPECT_THROW (start (bad), std::runtime_error);
}

TEST_F (ReceiverMeasurement, WithoutAMicrophoneAStimulusTakesItsTimeToo)
{
    auto profile = shippedProfile ("seven-one");
    profile.unit.set_capabilities (veltraio::Unit::Caps_kVolume);
    start ({ {}, 0.01 }, profile); // it would take 500 s
    expectOk (kMeasurement);
    expectOk (sweepOn ("0"));
    EXPECT_EQ ("isPlaying: true\nprogress: 0\n", host->say (kStimulusState));
    expectOk ("StopStimulus deviceIndex: 0");
    EXPECT_EQ ("isPlaying: false\n", host->say (kStimulusState));

    start ({ {}, 100.0 }, profile); // 50 ms
    expectOk (kMeasurement);
    const auto begun = std::chrono::steady_clock::now();
    expectOk (sweepOn ("0"));

    while (host->say (kStimulusState) != "isPlaying: false\n" && std::chrono::steady_clock::now() - begun < 60s)
        std::this_thread::sleep_for (5ms);

    EXPECT_GE (std::chrono::steady_clock::now() - begun, 48ms);
    EXPECT_EQ ("isPlaying: false\n", host->say (kStimulusState));
    EXPECT_TRUE (capture.empty());
}

TEST (Correction, IsTheFilterWithGainAndDelayOfItsChannel)
{
    auto info = shippedProfile ("stereo").topologyInfo;
    info.mutable_topologies (0)->set_information ("NbrOfFIRTaps=1");
    Slot slot;
    auto& block = slot.blocks.emplace_back();
    block.sampleRate = 44100;
    block.channelIndices = { 1 };
    block.bytes.assign ("\0\0\0\x3f", 4); // 0.5
    auto& channel = slot.channels.emplace_back();
    channel.set_channelindex (0);
    channel.set_gain_db (-20.0f);
    channel.set_delay_ms (1.0f);
    EXPECT_TRUE (correctionResponse (slot, info, 1, 44100)->isApprox (0.05f * Eigen::VectorXf::Unit (45, 44)));
    EXPECT_FALSE (correctionResponse (slot, info, 0, 44100)) << "not a channel of this filter";
    channel.set_noeq (true);
    EXPECT_TRUE (correctionResponse (slot, info, 1, 44100)->isApprox (0.1f * Eigen::VectorXf::Unit (45, 44)));
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
    EXPECT_EQ (72000, sweep.size());
    EXPECT_NEAR (-6.0, 20.0 * std::log10 (sweep.cwiseAbs().maxCoeff()), 0.05);
    EXPECT_EQ (0.0f, sweep.tail (24000).norm());

    EXPECT_NEAR (-30.0, rms_dB (make (1, "Seconds=2;Level_dBFS=-30")), 0.1);
    EXPECT_NE (make (1, "Seed=1").head (100), make (1, "Seed=2").head (100));

    // Not all of the sines have whole periods: the level is good to a few tenths of a dB.
    const auto level = make (2, "Seconds=4;Level_dBFS=-20");
    EXPECT_NEAR (-20.0, rms_dB (level), 0.3);
    // Twenty sines in phase would reach 16 dB above their RMS value.
    EXPECT_LT (20.0 * std::log10 (level.cwiseAbs().maxCoeff()), -20.0 + 12.0);

    for (const auto* information : { "Seconds=0", "Seconds=61", "Seconds=nan", "StartFrequency=24001", "Level_dBFS=1",
                                     "StartFrequency=100;EndFrequency=100" })
        EXPECT_FALSE (tools::parseStimulus (0, 48000, information, error)) << information;
}

}
}
