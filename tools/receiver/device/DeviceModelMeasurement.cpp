// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/DeviceModel.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

#include "dsp/FftConvolve.h"
#include "tools/receiver/device/Messages.h"
#include "tools/receiver/sound/Correction.h"
#include "tools/receiver/sound/Stimulus.h"

namespace veltra::receiver {

namespace {

bool offersRate (const veltraio::Unit& unit, std::uint32_t sampleRate)
{
    for (const auto& device : unit.devices())
        for (const auto& configuration : device.configurations())
            if (std::find (configuration.samplerates().begin(), configuration.samplerates().end(), sampleRate)
                != configuration.samplerates().end())
                return true;

    return false;
}

/** a += b, whichever of them is longer. */
void add (Eigen::VectorXf& a, const Eigen::VectorXf& b)
{
    if (a.size() < b.size())
        a.conservativeResizeLike (Eigen::VectorXf::Zero (b.size()));

    a.head (b.size()) += b;
}

}

void DeviceModel::checkMeasurement() const
{
    if (! (options.speed > 0.0 && options.speed <= 1000.0))
        throw std::runtime_error ("The speed is not between 0 and 1000");

    if (options.packetSamples == 0 || options.packetSamples > MeasurementOptions::kMaxPacketSamples)
        throw std::runtime_error ("A packet has 1 to " + std::to_string (MeasurementOptions::kMaxPacketSamples)
                                  + " samples");

    if (! (options.noise_dBFS <= 0.0))
        throw std::runtime_error ("The noise is above full scale");

    for (const auto& entry : profile.stimulusInfo.stimulusinformation())
    {
        std::string error;

        if (! tools::parseStimulus (entry.stimulus(), entry.samplerate(), entry.information(), error))
            throw std::runtime_error ("Stimulus " + std::to_string (entry.stimulus()) + " at "
                                      + std::to_string (entry.samplerate()) + " Hz: " + error);
    }
}

DeviceModel::MeasurementStatus DeviceModel::measurement() const
{
    const std::scoped_lock guard (lock);
    auto status = mode;

    if (microphone != nullptr)
        status.stimulus = microphone->status();

    return status;
}

void DeviceModel::setMode (Conversation& conversation, const veltraio::OperationModeInfo& message)
{
    if (mode.isMeasuring && mode.session != conversation.session)
        throw Refusal ("Another session measures");

    if (message.mode() == veltraio::OperationMode_kMeasurement)
        enterMeasurement (conversation, message);
    else
        leaveMeasurement();
}

void DeviceModel::enterMeasurement (const Conversation& conversation, const veltraio::OperationModeInfo& message)
{
    if (message.has_samplerate() && ! offersRate (profile.unit, message.samplerate()))
        throw Refusal ("Measurement at " + std::to_string (message.samplerate())
                       + " Hz, which no configuration of the receiver offers");

    leaveMeasurement();
    mode.isMeasuring = true;
    mode.session = conversation.session;
    mode.sampleRate = message.samplerate();

    if (mode.sampleRate == 0 || (profile.unit.capabilities() & veltraio::Unit::Caps_kAudioDataCallback) == 0)
        return;

    auto send = [to = conversation.send, packet = veltraio::AudioData(),
                 number = 0u] (std::span<const float> samples) mutable {
        packet.set_packetnumber (number++);
        packet.mutable_data()->Assign (samples.begin(), samples.end());
        return to (packet);
    };
    microphone = std::make_unique<MicrophoneStream> (streamFormat (mode.sampleRate), std::move (send));
}

void DeviceModel::leaveMeasurement()
{
    microphone = nullptr;
    mode = {};
}

MicrophoneStream::Format DeviceModel::streamFormat (std::uint32_t sampleRate) const
{
    return { sampleRate, options.speed, options.packetSamples, options.noise_dBFS };
}

tools::Stimulus DeviceModel::stimulus (unsigned kind, std::uint32_t sampleRate) const
{
    const auto& entries = profile.stimulusInfo.stimulusinformation();
    const auto found = std::find_if (entries.begin(), entries.end(), [&] (const auto& entry) {
        return static_cast<unsigned> (entry.stimulus()) == kind && entry.samplerate() == sampleRate;
    });

    if (found == entries.end())
        throw Refusal ("No stimulus " + std::to_string (kind) + " at " + std::to_string (sampleRate) + " Hz");

    std::string error;
    return tools::parseStimulus (kind, sampleRate, found->information(), error).value();
}

Eigen::VectorXf DeviceModel::channelResponse (const Device& played, const veltraio::Unit::Device::ChannelInfo& info,
                                              std::uint32_t sampleRate)
{
    Eigen::VectorXf response = room.response (info.name(), sampleRate);

    const auto& settings = played.settings;
    const auto& slots = played.memory.slots();

    if (settings.isFiltering && settings.activeSlot < slots.size()
        && slots[settings.activeSlot].state == Slot::State::occupied)
    {
        if (const auto correction =
                correctionResponse (slots[settings.activeSlot], profile.topologyInfo, info.channelindex(), sampleRate))
            response = dsp::fftConvolve (response, *correction);
    }

    const auto found = settings.attenuation.find (info.channelindex());
    const auto attenuation_dB =
        profile.unit.maxchannelattenuation_db() * (found == settings.attenuation.end() ? 0.0f : found->second);
    const auto gain = settings.volume / kReferenceVolume * std::pow (10.0f, -attenuation_dB / 20.0f);
    return gain * response;
}

void DeviceModel::startStimulus (Conversation& conversation, const veltraio::StartStimulus& message)
{
    const auto& played = device (message.deviceindex());
    const auto sampleRate = message.samplerate();

    if (! mode.isMeasuring || mode.session != conversation.session)
        throw Refusal ("Not in measurement mode");

    if (mode.sampleRate != 0 && mode.sampleRate != sampleRate)
        throw Refusal ("Stimulus at " + std::to_string (sampleRate) + " Hz in a measurement at "
                       + std::to_string (mode.sampleRate) + " Hz");

    const auto wanted = stimulus (message.stimulustype(), sampleRate);

    if (message.channels().empty())
        throw Refusal ("Stimulus without channels");

    // The loudspeakers play the same, so the room is one sum of their responses.
    Eigen::VectorXf response;

    for (const auto index : std::set<std::uint32_t> (message.channels().begin(), message.channels().end()))
        add (response, channelResponse (played, channel (message.deviceindex(), index), sampleRate));

    const auto latency =
        static_cast<std::uint64_t> (profile.stimulusInfo.stimuluslatencymilliseconds()) * sampleRate / 1000;
    auto playback = std::make_unique<Playback> (tools::makeStimulus (wanted), std::move (response), latency);

    // Without a microphone that listens the stimulus takes its time all the same.
    if (microphone == nullptr || mode.sampleRate == 0)
        microphone = std::make_unique<MicrophoneStream> (streamFormat (sampleRate),
                                                         [] (std::span<const float>) { return true; });

    microphone->play (std::move (playback));
}

void DeviceModel::stopStimulus (Conversation&, const veltraio::StopStimulus& message)
{
    device (message.deviceindex());

    if (microphone != nullptr)
        microphone->stop();
}

}
