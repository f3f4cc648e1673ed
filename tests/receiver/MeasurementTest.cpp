#include <cmath>

#include <gtest/gtest.h>

#include "dsp/FftConvolve.h"
#include "tests/receiver/TestHost.h"
#include "tools/common/Deconvolution.h"
#include "tools/common/NoiseSource.h"
#include "tools/common/Stimulus.h"
#include "tools/receiver/Receiver.h"
#include "topology/VLFIRBlob.h"
#include "topology/VLFIRModel.h"

namespace veltra::receiver {
namespace {

using namespace veltraio;
using namespace std::chrono_literals;

constexpr double kSilence = -std::numeric_limits<double>::infinity();

Receiver::Options withMeasurement (const MeasurementOptions& measurement)
{
    Receiver::Options options;
    options.measurement = measurement;
    return options;
}

MeasurementOptions inTheLivingRoom()
{
    MeasurementOptions options;
    options.room.folder = "examples/living-room";
    options.noise_dBFS = kSilence;
    options.speed = 1000.0;
    options.packetSamples = MeasurementOptions::kMaxPacketSamples;
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
    std::string error;
    const auto& info = shippedProfile ("seven-one").stimulusInfo;
    for (const auto& entry : info.stimulusinformation())
        if (entry.stimulus() == Stimulus_kSineLogSweep && entry.samplerate() == sampleRate)
            return tools::makeStimulus (*tools::parseStimulus (0, sampleRate, entry.information(), error));
    return {};
}

/** The greatest difference between a measured response and the expected one, in dB below the peak of that; the
    measured one begins anywhere, and is brought in line by its peak. */
double deviation_dB (const Eigen::VectorXf& measured, const Eigen::VectorXf& expected)
{
    Eigen::Index peak = 0, expectedPeak = 0;
    measured.cwiseAbs().maxCoeff (&peak);
    const auto size = expected.cwiseAbs().maxCoeff (&expectedPeak);
    const auto shift = peak - expectedPeak;
    Eigen::VectorXf difference = measured;
    const auto first = std::max<Eigen::Index> (-shift, 0);
    const auto count = std::min (expected.size() - first, measured.size() - std::max<Eigen::Index> (shift, 0));
    difference.segment (shift + first, count) -= expected.segment (first, count);
    return 20.0 * std::log10 (difference.cwiseAbs().maxCoeff() / size);
}

TEST (ReceiverMeasurement, StreamsTheMicrophonesNoiseInNumberedPackets)
{
    MeasurementOptions options;
    options.noise_dBFS = -60.0;
    options.speed = 100.0;
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());

    EXPECT_EQ (measurer.command (measurementAt (96000)), "ok");
    measurer.captureAtLeast (100000);
    EXPECT_EQ (measurer.command (audition()), "ok");
    tools::NoiseSource noise (-60.0);
    double energy = 0.0;
    for (const auto sample : measurer.capture)
    {
        ASSERT_EQ (sample, noise.next());
        energy += static_cast<double> (sample) * sample;
    }
    EXPECT_NEAR (10.0 * std::log10 (energy / static_cast<double> (measurer.capture.size())), -60.0, 0.1);

    measurer.host.send (Ping());
    EXPECT_TRUE (measurer.host.receiveA<Pong>()) << "packets after the measurement";
}

TEST (ReceiverMeasurement, KeepsThePaceOfRealTimeTimesTheSpeed)
{
    MeasurementOptions options;
    options.speed = 10.0;
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ (measurer.command (measurementAt (48000)), "ok");
    measurer.captureAtLeast (48000);
    // Never ahead of the clock, less the last packet; how far behind is the machine's affair.
    EXPECT_GE (std::chrono::steady_clock::now() - start, 98ms);
}

TEST (ReceiverMeasurement, HearsTheRoomOfTheChannelsThatPlay)
{
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (inTheLivingRoom()));
    Room room (inTheLivingRoom().room);
    Measurer measurer (receiver.port());

    const auto left = tools::deconvolve (measurer.measure (stimulusOn ({ 0 }), 300000), sweepAt (48000));
    EXPECT_LT (deviation_dB (left, room.response ("FL", 48000)), -80.0);
    const Eigen::VectorXf sum = room.response ("FR", 96000) + room.response ("SW", 96000);
    const auto both = tools::deconvolve (measurer.measure (stimulusOn ({ 3, 1, 3 }, 96000), 600000), sweepAt (96000));
    EXPECT_LT (deviation_dB (both, sum), -80.0);
}

TEST (ReceiverMeasurement, ARoomWithoutResponsesIsADelay)
{
    auto options = inTheLivingRoom();
    options.room = { {}, 5.0 };
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());
    const auto stimulus = sweepAt (48000);
    const auto capture = measurer.measure (stimulusOn ({ 2 }), 300000);

    // Ten milliseconds of the profile's latency and five of the room's lie before the first sample, which is 0.
    Eigen::Index first = 0;
    while (first < capture.size() && std::abs (capture[first]) < 1e-6f)
        ++first;
    const auto begin = first - 1 - 720;
    ASSERT_GE (begin, 0);
    EXPECT_EQ (begin % MeasurementOptions::kMaxPacketSamples, 0) << "begins with a packet";
    EXPECT_LT ((capture.segment (first - 1, stimulus.size()) - stimulus).cwiseAbs().maxCoeff(), 1e-5f);
}

TEST (ReceiverMeasurement, AttenuationAndVolumeAreHeard)
{
    auto options = inTheLivingRoom();
    options.room = {};
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());
    ChannelAttenuation attenuation;
    attenuation.set_deviceindex (0);
    attenuation.set_channel (0);
    attenuation.set_attenuation (0.5f);
    EXPECT_EQ (measurer.command (attenuation), "ok");
    Volume volume;
    volume.set_deviceindex (0);
    volume.set_volume (DeviceModel::kReferenceVolume / 2.0f);
    EXPECT_EQ (measurer.command (volume), "ok");

    // Half of the profile's 12 dB, and half of the amplitude.
    const auto stimulus = sweepAt (48000);
    const auto capture = measurer.measure (stimulusOn ({ 0 }), 300000);
    EXPECT_NEAR (20.0 * std::log10 (capture.norm() / stimulus.norm()), -6.0 - 6.02, 0.01);
}

TEST (ReceiverMeasurement, TellsTheTruthAboutTheStimulus)
{
    auto options = inTheLivingRoom();
    options.speed = 5.0;
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());
    EXPECT_EQ (measurer.command (measurementAt (48000)), "ok");
    EXPECT_FALSE (receiver.measurement().stimulus.isPlaying);
    EXPECT_EQ (measurer.command (stimulusOn ({ 0 })), "ok");
    EXPECT_TRUE (receiver.measurement().stimulus.isPlaying);

    const auto begun = measurer.capture.size();
    measurer.captureAtLeast (begun + 96000);
    const auto status = receiver.measurement().stimulus;
    EXPECT_TRUE (status.isPlaying);
    EXPECT_GT (status.progress, 0.35f);
    measurer.captureAtLeast (begun + 5 * 48000 + 20000);
    EXPECT_TRUE (receiver.waitFor ([&] { return ! receiver.measurement().stimulus.isPlaying; }));

    EXPECT_EQ (measurer.command (stimulusOn ({ 0 }, 48000, Stimulus_kNoise)), "ok");
    StopStimulus stop;
    stop.set_deviceindex (0);
    EXPECT_EQ (measurer.command (stop), "ok");
    EXPECT_FALSE (receiver.measurement().stimulus.isPlaying);
}

TEST (ReceiverMeasurement, RefusesWhatItCannotPlay)
{
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (inTheLivingRoom()));
    Measurer measurer (receiver.port());
    EXPECT_EQ (measurer.command (stimulusOn ({ 0 }, 0)), "Not in measurement mode");
    EXPECT_EQ (measurer.command (measurementAt (88200)), "Measurement at 88200 Hz, which no configuration of the receiver offers");
    EXPECT_EQ (measurer.command (measurementAt (48000)), "ok");
    EXPECT_EQ (measurer.command (stimulusOn ({ 0 }, 44100)), "Stimulus at 44100 Hz in a measurement at 48000 Hz");
    EXPECT_EQ (measurer.command (stimulusOn ({})), "Stimulus without channels");
    EXPECT_EQ (measurer.command (stimulusOn ({ 0, 9 })), "No channel 9");

    Measurer second (receiver.port());
    EXPECT_EQ (second.command (measurementAt (48000)), "Another session measures");
    EXPECT_EQ (second.command (stimulusOn ({ 0 })), "Not in measurement mode");
}

TEST (ReceiverMeasurement, IsEnteredAndLeftManyTimesWithPacketsFlowing)
{
    MeasurementOptions options;
    options.speed = 100.0;
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());
    for (int i = 0; i < 200; ++i)
    {
        EXPECT_EQ (measurer.command (measurementAt (48000)), "ok");
        measurer.captureAtLeast (measurer.capture.size() + 1);
        EXPECT_EQ (measurer.command (audition()), "ok");
        measurer.host.send (Ping());
        ASSERT_TRUE (measurer.host.receiveA<Pong>()) << "packets after the measurement";
    }
}

TEST (ReceiverMeasurement, EndsWithItsSession)
{
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (inTheLivingRoom()));
    {
        Measurer measurer (receiver.port());
        EXPECT_EQ (measurer.command (measurementAt (48000)), "ok");
        EXPECT_TRUE (receiver.measurement().isMeasuring);
    }
    EXPECT_TRUE (receiver.waitFor ([&] { return ! receiver.measurement().isMeasuring; }));
}

TEST (ReceiverMeasurement, WithoutAMicrophoneTheStimulusTakesItsTimeAllTheSame)
{
    auto profile = shippedProfile ("seven-one");
    profile.unit.set_capabilities (Unit::Caps_kVolume);
    auto options = inTheLivingRoom();
    options.speed = 100.0;
    Receiver receiver (profile, withMeasurement (options));
    TestHost host (receiver.port());
    OperationModeInfo mode;
    mode.set_mode (OperationMode_kMeasurement);
    EXPECT_EQ (host.command (mode), "ok");
    EXPECT_EQ (host.command (stimulusOn ({ 0 })), "ok");
    EXPECT_TRUE (receiver.measurement().stimulus.isPlaying);
    EXPECT_TRUE (receiver.waitFor ([&] { return ! receiver.measurement().stimulus.isPlaying; }));
    EXPECT_EQ (host.command (audition()), "ok");
}

TEST (ReceiverMeasurement, NoSampleIsLostInAMinuteAtTwentyTimesRealTime)
{
    MeasurementOptions options;
    options.speed = 20.0;
    Receiver receiver (shippedProfile ("seven-one"), withMeasurement (options));
    Measurer measurer (receiver.port());
    EXPECT_EQ (measurer.command (measurementAt (96000)), "ok");
    measurer.captureAtLeast (60 * 96000);
    tools::NoiseSource noise (options.noise_dBFS);
    for (const auto sample : measurer.capture)
        ASSERT_EQ (sample, noise.next());
}

/** Fills slot 0 and switches filtering on. */
void download (Measurer& measurer, std::uint32_t sampleRate, std::uint32_t channels, const std::string& bytes, float gain_dB,
               float delay_ms, std::uint32_t withoutEq)
{
    LoadFilter load;
    load.set_deviceindex (0);
    load.set_slotindex (0);
    load.mutable_filter()->set_name ("test");
    load.mutable_filter()->set_noofchannels (channels);
    EXPECT_EQ (measurer.command (load), "ok");
    FilterData data;
    data.set_deviceindex (0);
    data.set_slotindex (0);
    data.set_samplerate (sampleRate);
    data.set_sizebytes (static_cast<std::uint32_t> (bytes.size()));
    for (std::uint32_t i = 0; i < channels; ++i)
    {
        data.add_channelindices (i);
        FilterChannel channel;
        channel.set_channelindex (i);
        channel.set_gain_db (gain_dB);
        channel.set_delay_ms (delay_ms);
        channel.set_maxgain_db (0.0f);
        channel.set_latency_ms (0.0f);
        channel.set_noeq (i == withoutEq);
        EXPECT_EQ (measurer.command (channel), "ok");
    }
    EXPECT_EQ (measurer.command (data), "ok");
    FilterDataChunk chunk;
    chunk.set_deviceindex (0);
    chunk.set_slotindex (0);
    chunk.set_dataoffset (0);
    chunk.add_data (bytes);
    EXPECT_EQ (measurer.command (chunk), "ok");
    FilteringState on;
    on.set_deviceindex (0);
    on.set_isfiltering (true);
    EXPECT_EQ (measurer.command (on), "ok");
}

void download (Measurer& measurer, std::uint32_t sampleRate, const std::vector<std::vector<float>>& coefficients,
               float gain_dB, float delay_ms, std::uint32_t withoutEq)
{
    std::string bytes;
    for (const auto& channel : coefficients)
        bytes.append (reinterpret_cast<const char*> (channel.data()), channel.size() * sizeof (float));

    download (measurer, sampleRate, static_cast<std::uint32_t> (coefficients.size()), bytes, gain_dB, delay_ms, withoutEq);
}

Profile withTopology (const std::string& name, const std::string& information)
{
    auto profile = shippedProfile ("seven-one");
    profile.protocolInfo.set_messagelimit (0);
    auto& topology = *profile.topologyInfo.mutable_topologies (1);
    topology.set_name (name);
    topology.set_information (information);
    return profile;
}

TEST (ReceiverFiltering, AppliesTheTapsGainAndDelayOfTheActiveSlot)
{
    Receiver receiver (withTopology ("FIR", "NbrOfFIRTaps=3"), withMeasurement (inTheLivingRoom()));
    Room room (inTheLivingRoom().room);
    Measurer measurer (receiver.port());
    download (measurer, 48000, { { 9.0f, 9.0f, 9.0f }, { 0.25f, 0.5f, -0.125f } }, -6.0f, 1.0f, 0);

    Eigen::VectorXf filter = Eigen::VectorXf::Zero (48 + 3);
    filter.tail (3) << 0.25f, 0.5f, -0.125f;
    filter *= std::pow (10.0f, -6.0f / 20.0f);
    const auto right = tools::deconvolve (measurer.measure (stimulusOn ({ 1 }), 300000), sweepAt (48000));
    EXPECT_LT (deviation_dB (right, dsp::fftConvolve (room.response ("FR", 48000), filter)), -80.0);

    const Eigen::VectorXf left = std::pow (10.0f, -6.0f / 20.0f) * room.response ("FL", 48000);
    const auto withoutEq = tools::deconvolve (measurer.measure (stimulusOn ({ 0 }), 300000), sweepAt (48000));
    EXPECT_LT (deviation_dB (withoutEq, left), -80.0) << "a channel without EQ";

    const auto untouched = tools::deconvolve (measurer.measure (stimulusOn ({ 2 }), 300000), sweepAt (48000));
    EXPECT_LT (deviation_dB (untouched, room.response ("C", 48000)), -80.0) << "a channel that the filter does not have";
}

TEST (ReceiverFiltering, AppliesSectionsInParallelBehindTheTaps)
{
    Receiver receiver (withTopology ("FIIR", "NbrOfFIRTaps=2;NbrOfIIRSections=1"), withMeasurement (inTheLivingRoom()));
    Room room (inTheLivingRoom().room);
    Measurer measurer (receiver.port());
    download (measurer, 48000, { { 0.5f, 0.25f, -0.5f, 0.0f, 0.125f, 0.25f } }, 0.0f, 0.0f, 9);

    // (0.125 + 0.25 z^-1) / (1 - 0.5 z^-1), two samples late: 0.125, then 0.3125 halved again and again.
    Eigen::VectorXf filter = Eigen::VectorXf::Zero (40);
    filter.head (3) << 0.5f, 0.25f, 0.125f;
    for (Eigen::Index n = 3; n < filter.size(); ++n)
        filter[n] = n == 3 ? 0.3125f : 0.5f * filter[n - 1];
    const auto left = tools::deconvolve (measurer.measure (stimulusOn ({ 0 }), 300000), sweepAt (48000));
    EXPECT_LT (deviation_dB (left, dsp::fftConvolve (room.response ("FL", 48000), filter)), -80.0);
}

TEST (ReceiverFiltering, PlaysADualRateFilterByTheModelOfTheDevice)
{
    Receiver receiver (withTopology ("VLFIR2", "NbrOfFIRTaps=256"), withMeasurement (inTheLivingRoom()));
    Room room (inTheLivingRoom().room);
    Measurer measurer (receiver.port());

    topology::VLFIRChannel channel;
    channel.highRateDelay = 310;
    channel.highRateTaps = 0.5f * Eigen::VectorXf::Unit (256, 7);
    channel.lowRateTaps = 0.25f * Eigen::VectorXf::Unit (256, 3);

    topology::VFIIR2::SFilter filter;
    filter.highRateTaps = channel.highRateTaps.data();
    filter.lowRateTaps = channel.lowRateTaps.data();
    filter.highRateTapCount = filter.lowRateTapCount = 256;
    filter.highRateDelay = channel.highRateDelay;
    std::vector<std::uint8_t> blob;
    topology::VFIIR2::makeBlob (48000, { &filter, 1 }, blob, nullptr);

    download (measurer, 48000, 1, std::string (blob.begin(), blob.end()), 0.0f, 0.0f, 9);
    const auto left = tools::deconvolve (measurer.measure (stimulusOn ({ 0 }), 300000), sweepAt (48000));
    EXPECT_LT (deviation_dB (left, dsp::fftConvolve (room.response ("FL", 48000), topology::impulseResponse (channel))), -80.0);
}

TEST (ReceiverFiltering, RefusesToPlayThroughAFilterThatItCannotApply)
{
    Receiver receiver (withTopology ("FIR", "NbrOfFIRTaps=4"), withMeasurement (inTheLivingRoom()));
    Measurer measurer (receiver.port());
    download (measurer, 48000, { { 1.0f, 0.0f, 0.0f } }, 0.0f, 0.0f, 9);
    EXPECT_EQ (measurer.command (measurementAt (48000)), "ok");
    EXPECT_EQ (measurer.command (stimulusOn ({ 0 })), "The filter at 48000 Hz cannot be applied: 12 bytes where its topology takes 16");
}

TEST (Stimulus, HasTheLevelAndBandThatItsDescriptionSays)
{
    std::string error;
    const auto make = [&] (unsigned kind, const std::string& information)
    {
        const auto stimulus = tools::parseStimulus (kind, 48000, information, error);
        EXPECT_TRUE (stimulus) << error;
        return tools::makeStimulus (*stimulus);
    };
    const auto rms_dB = [] (const Eigen::VectorXf& samples)
    {
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
