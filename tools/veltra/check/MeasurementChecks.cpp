// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Level 4: measurement mode, and the microphone's packets.
*/

#include <algorithm>
#include <cmath>
#include <thread>

#include "tools/veltra/check/Check.h"

namespace veltra::check {

namespace {

using veltraio::Request;

constexpr float kLoudestVolume = 0.2f; // of full volume, while a stimulus plays
constexpr double kQuietListening_s = 0.7, kStimulus_s = 1.5;
constexpr double kPaceTolerance = 0.1;
constexpr double kLouder = 1.4; // a stimulus of 3 dB above the noise is heard

veltraio::OperationModeInfo modeOf (veltraio::OperationMode mode, std::uint32_t rate)
{
    veltraio::OperationModeInfo message;
    message.set_mode (mode);

    if (rate != 0)
        message.set_samplerate (rate);

    return message;
}

veltraio::StopStimulus stopOf()
{
    veltraio::StopStimulus message;
    message.set_deviceindex (0);
    return message;
}

/** Measurement mode, which ends with the object: the mode and the stimulus on the same connection. */
class Measuring
{
public:
    Measuring (Wire& theWire, std::uint32_t rate) : wire (theWire)
    {
        wire.command (modeOf (veltraio::OperationMode_kMeasurement, rate));
    }

    ~Measuring()
    {
        if (isOver)
            return;

        wire.send (stopOf());
        wire.send (modeOf (veltraio::OperationMode_kAudition, 0));
    }

    Measuring (const Measuring&) = delete;
    Measuring& operator= (const Measuring&) = delete;

    void leave()
    {
        isOver = true;
        wire.command (modeOf (veltraio::OperationMode_kAudition, 0));
    }

private:
    Wire& wire;
    bool isOver = false;
};

/** A stimulus that the receiver has, at a rate of a configuration. */
const veltraio::StimulusInfo::StimulusEntry& someStimulus (const Subject& subject)
{
    for (const auto& entry : subject.stimulusInfo.stimulusinformation())
        for (const auto& configuration : subject.device().configurations())
            if (std::ranges::find (configuration.samplerates(), entry.samplerate())
                != configuration.samplerates().end())
                return entry;

    throw Skip { "the receiver has no stimulus at a rate of a configuration" };
}

double levelOf (const std::vector<Packet>& packets)
{
    double sum = 0.0;
    std::size_t count = 0;

    for (const auto& packet : packets)
        for (const auto sample : packet.samples)
        {
            sum += double { sample } * sample;
            ++count;
        }

    return count == 0 ? 0.0 : std::sqrt (sum / static_cast<double> (count));
}

void expectContinuous (const std::vector<Packet>& packets, std::uint32_t rate, Milliseconds slack)
{
    const auto sent = "measurement mode at " + std::to_string (rate) + " Hz";

    if (packets.size() < 3)
        throw Finding { sent, "packets of AudioData", std::to_string (packets.size()) };

    for (std::size_t i = 0; i < packets.size(); ++i)
        if (packets[i].number != i)
            throw Finding { sent, "packet number " + std::to_string (i), std::to_string (packets[i].number) };

    std::size_t samples = 0;

    for (const auto& packet : packets)
    {
        const auto isFinite =
            std::ranges::all_of (packet.samples, [] (float sample) { return std::isfinite (sample); });

        if (packet.samples.empty() || ! isFinite)
            throw Finding { sent, "finite samples in every packet",
                            "packet " + std::to_string (packet.number) + " without" };

        samples += packet.samples.size();
    }

    const auto played_s = static_cast<double> (samples - packets.front().samples.size()) / rate;
    const auto passed_s = std::chrono::duration<double> (packets.back().arrival - packets.front().arrival).count();
    const auto tolerance_s = kPaceTolerance * passed_s + 0.1 + std::chrono::duration<double> (slack).count();

    if (std::abs (played_s - passed_s) > tolerance_s)
        throw Finding { sent, "audio in real time",
                        numberText (played_s) + " s of audio in " + numberText (passed_s) + " s" };
}

/** Lowers the volume, where there is one. The run puts it back at its end; this does so at once. */
class LowVolume
{
public:
    LowVolume (const Subject& subject, Wire& theWire) : wire (theWire)
    {
        if (! subject.can (veltraio::Unit::Caps_kVolume))
            return;

        try
        {
            before = wire.ask<veltraio::Volume> (request (Request::RequestType_kGetVolume));
        }
        catch (const Finding&)
        {
            throw Skip { "its volume cannot be lowered: 'tells-volume' did not pass" };
        }

        before->clear_description();
        auto low = *before;
        low.set_volume (std::min (before->volume(), kLoudestVolume));
        wire.command (low);
    }

    ~LowVolume()
    {
        if (before)
            wire.send (*before);
    }

    LowVolume (const LowVolume&) = delete;
    LowVolume& operator= (const LowVolume&) = delete;

private:
    Wire& wire;
    std::optional<veltraio::Volume> before;
};

void streamsMicrophone (Subject& subject)
{
    if (! subject.can (veltraio::Unit::Caps_kAudioDataCallback))
        throw Skip { "the receiver does not stream its microphone (Caps_kAudioDataCallback)" };

    const auto& entry = someStimulus (subject);
    const auto rate = entry.samplerate();
    Wire wire (subject.target);
    const LowVolume low (subject, wire);
    Measuring measuring (wire, rate);
    wire.listen (Milliseconds (static_cast<int> (1000 * kQuietListening_s)));
    auto packets = wire.takeAudio();
    const auto quiet = levelOf (packets);

    veltraio::StartStimulus start;
    start.set_deviceindex (0);
    start.set_stimulustype (entry.stimulus());
    start.set_samplerate (rate);
    start.add_channels (subject.device().outputchannels (0).channelindex());
    wire.command (start);
    wire.listen (Milliseconds (static_cast<int> (1000 * kStimulus_s)
                               + static_cast<int> (subject.stimulusInfo.stimuluslatencymilliseconds())));
    const auto played = wire.takeAudio();
    wire.command (stopOf());
    measuring.leave();
    const auto rest = wire.takeAudio();
    wire.listen (Milliseconds (300) + wire.slack() / 20);

    if (const auto late = wire.takeAudio(); ! late.empty())
        throw Finding { "the end of measurement mode", "no AudioData behind its acknowledgement",
                        std::to_string (late.size()) + " packets" };

    packets.insert (packets.end(), played.begin(), played.end());
    packets.insert (packets.end(), rest.begin(), rest.end());
    expectContinuous (packets, rate, wire.slack());

    if (! (levelOf (played) > kLouder * quiet))
        throw Finding { describe (start), "that the microphone hears it",
                        "a level of " + numberText (levelOf (played)) + ", " + numberText (quiet) + " before" };
}

void tellsWhatPlays (Subject& subject)
{
    const auto& entry = someStimulus (subject);
    Wire wire (subject.target);
    const LowVolume low (subject, wire);
    veltraio::StartStimulus start;
    start.set_deviceindex (0);
    start.set_stimulustype (entry.stimulus());
    start.set_samplerate (entry.samplerate());
    start.add_channels (subject.device().outputchannels (0).channelindex());
    wire.refusal (start); // not in measurement mode

    Measuring measuring (wire, entry.samplerate());
    wire.command (start);
    const auto isPlaying = [&] {
        return wire.ask<veltraio::StimulusState> (request (Request::RequestType_kGetStimulusState)).isplaying();
    };

    if (! isPlaying())
        throw Finding { describe (start) + ", and the question for StimulusState", "isPlaying: true",
                        "isPlaying: false" };

    wire.command (stopOf());

    if (isPlaying())
        throw Finding { "StopStimulus, and the question for StimulusState", "isPlaying: false", "isPlaying: true" };

    measuring.leave();
}

void endsWithConnection (Subject& subject)
{
    const auto rate = someStimulus (subject).samplerate();
    {
        Wire wire (subject.target);
        wire.command (modeOf (veltraio::OperationMode_kMeasurement, rate));
    }
    std::this_thread::sleep_for (Milliseconds (300) + subject.target.slack / 20);
    Wire wire (subject.target);
    Measuring measuring (wire, rate);
    measuring.leave();
}

}

void addMeasurementChecks (std::vector<Check>& checks)
{
    const std::vector<const char*> needs { "tells-unit", "tells-stimuli", "tells-stimulus-state" };
    const std::vector<Check> measurementChecks {
        { "tells-what-plays", 4, "Measurement", needs, tellsWhatPlays },
        { "streams-its-microphone", 4, "Measurement", needs, streamsMicrophone },
        { "ends-measurement-with-its-connection", 4, "Measurement", needs, endsWithConnection },
    };
    checks.insert (checks.end(), measurementChecks.begin(), measurementChecks.end());
}

}
