// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The operations that drive a device while a room is measured. Each is one exchange.
*/

#include "plugin/DeviceImpl.h"

#include <algorithm>
#include <cmath>

#include "common/Log.h"
#include "common/Text.h"
#include "plugin/HostCall.h"
#include "plugin/ProductProfile.h"

namespace veltra::plugin {

using namespace veltratune_io;
using veltraio::Request;

namespace {

constexpr std::uint32_t kModeTimeout_ms = 1000;
constexpr std::uint32_t kStimulusTimeout_ms = 2000;
constexpr std::uint32_t kSlotTimeout_ms = 1000;
constexpr std::uint32_t kShortTimeout_ms = 500;

}

EResult DeviceImpl::resultOf (const CommandResult& command)
{
    if (command.isAcknowledged())
        return kResultOk;

    if (command.sent == 0)
        lastError = command.isRefused() ? command.refusal : "Timeout";

    return kResultFailed;
}

EResult DeviceImpl::EnterMeasurementMode (std::uint32_t rate, std::uint64_t, std::uint32_t channels,
                                          CaptureCallback* callback)
{
    return operation (kResultFailed, &lastError, [=, this] {
        if (! offersSampleRate (rate))
            return kResultBadSampleRate;

        if (channels > GetChannelCount())
            return kResultTooManyChannels;

        veltraio::OperationModeInfo message;
        message.set_mode (veltraio::OperationMode_kMeasurement);
        sampleRate = rate;

        if (hasCapability (veltraio::Unit::Caps_kAudioDataCallback))
        {
            capture.start (callback); // before the device can send its first packet; stays, also when it refuses
            message.set_samplerate (rate);
        }

        return resultOf (sendCommand (dispatcher, message, kModeTimeout_ms));
    });
}

bool DeviceImpl::LeaveMeasurementMode()
{
    return operation (false, &lastError, [this] {
        capture.stop();
        veltraio::OperationModeInfo message;
        message.set_mode (veltraio::OperationMode_kAudition);
        return resultOf (sendCommand (dispatcher, message, kModeTimeout_ms)) == kResultOk;
    });
}

EResult DeviceImpl::StartStimulus (EStimulus stimulus, const std::uint32_t* channelList, std::uint32_t count,
                                   std::uint64_t)
{
    return operation (kResultFailed, &lastError, [=, this] {
        if (channelList == nullptr && count > 0)
            return kResultBadArgument;

        if (! veltraio::Stimulus_IsValid (stimulus)) // the message classes abort on a value that they do not know
        {
            lastError = "Unknown stimulus";
            return kResultFailed;
        }

        veltraio::StartStimulus message;
        message.set_deviceindex (deviceIndex);
        message.set_stimulustype (static_cast<veltraio::Stimulus> (stimulus));
        message.set_samplerate (sampleRate);

        for (std::uint32_t i = 0; i < std::min (count, 2 * GetChannelCount()); ++i)
            message.add_channels (channelList[i]);

        return resultOf (sendCommand (dispatcher, message, kStimulusTimeout_ms));
    });
}

void DeviceImpl::StopStimulus()
{
    operation ([this] {
        veltraio::StopStimulus message;
        message.set_deviceindex (deviceIndex);
        sendCommand (dispatcher, message, kStimulusTimeout_ms);
    });
}

bool DeviceImpl::IsStimulusPlaying()
{
    return operation (false, [this] {
        const auto request = makeRequest (Request::RequestType_kGetStimulusState, deviceIndex);
        const auto answer = query<veltraio::StimulusState> (dispatcher, request, kShortTimeout_ms);
        return answer && answer->isplaying();
    });
}

EResult DeviceImpl::GetStimulusInformation (EStimulus stimulus, std::uint32_t rate, char* buffer,
                                            std::uint32_t size) const
{
    return operation (kResultFailed, [=, this] {
        bool isKnown = false;

        for (const auto& entry : descriptions.stimulusInfo.stimulusinformation())
        {
            if (static_cast<int> (entry.stimulus()) != static_cast<int> (stimulus))
                continue;

            isKnown = true;

            if (entry.samplerate() == rate)
            {
                copyBounded (entry.information(), buffer, size);
                return kResultOk;
            }
        }

        if (isKnown)
            return kResultBadSampleRate;

        VELTRA_LOG (ERROR, "Stimulus (" << static_cast<int> (stimulus) << ") not supported ");
        return kResultFailed;
    });
}

double DeviceImpl::GetStimulusLatency() const { return descriptions.stimulusInfo.stimuluslatencymilliseconds(); }

bool DeviceImpl::SetActiveFilterSlot (std::uint32_t slot)
{
    return operation (false, [=, this] {
        if (slot >= GetFilterSlotCount())
            return false;

        veltraio::ActiveFilterSlot message;
        message.set_deviceindex (deviceIndex);
        message.set_slotindex (slot);

        if (! sendCommand (dispatcher, message, kSlotTimeout_ms).isAcknowledged())
        {
            VELTRA_LOG (ERROR, "Error settings active slot"); // spelt so for those who search logs
            return false;
        }

        activeSlot = slot;
        return true;
    });
}

std::uint32_t DeviceImpl::GetActiveFilterSlot()
{
    return operation (std::uint32_t { 0 }, [this] {
        const auto request = makeRequest (Request::RequestType_kGetActiveFilterSlot, deviceIndex);
        const auto answer = query<veltraio::ActiveFilterSlot> (dispatcher, request, kSlotTimeout_ms);
        return answer ? answer->slotindex() : 0;
    });
}

void DeviceImpl::SetFiltering (bool enabled)
{
    operation ([=, this] {
        veltraio::FilteringState message;
        message.set_deviceindex (deviceIndex);
        message.set_isfiltering (enabled);

        // Waits whether or not the message went out.
        veltraio::AcknowledgeHandler handler (dispatcher);
        dispatcher.Send (message);
        handler.Wait (kShortTimeout_ms);
    });
}

bool DeviceImpl::GetFiltering()
{
    return operation (false, [this] {
        const auto request = makeRequest (Request::RequestType_kGetFilteringState, deviceIndex);
        const auto answer = query<veltraio::FilteringState> (dispatcher, request, kShortTimeout_ms);
        return answer && answer->isfiltering();
    });
}

namespace {

// A volume of 1 at the interface is this share of the device's own full volume.
constexpr bool kScalesVolume = kProfile.volumeScale_percent >= 2;
constexpr auto kVolumeScale = static_cast<float> (kProfile.volumeScale_percent);

}

bool DeviceImpl::SetVolume (float value)
{
    return operation (false, [=, this] {
        if (! std::isfinite (value)) // must not reach an amplifier
            return false;

        veltraio::Volume message;
        message.set_deviceindex (deviceIndex);
        message.set_volume (kScalesVolume ? kVolumeScale * value * 0.01f : value);
        return sendCommand (dispatcher, message, kShortTimeout_ms).isAcknowledged();
    });
}

float DeviceImpl::GetVolume (char* buffer, std::uint32_t size)
{
    return operation (0.0f, [=, this] {
        const auto request = makeRequest (Request::RequestType_kGetVolume, deviceIndex);
        const auto answer = query<veltraio::Volume> (dispatcher, request, kShortTimeout_ms);

        if (! answer)
            return 0.0f;

        if (answer->has_description())
            copyBounded (answer->description(), buffer, size);

        return kScalesVolume ? answer->volume() / (kVolumeScale * 0.01f) : answer->volume();
    });
}

bool DeviceImpl::SetChannelAttenuation (std::uint32_t channel, float attenuation)
{
    return operation (false, [=, this] {
        const float greatest = GetMaxChannelAttenuation();
        const float fraction = greatest != 0.0f ? attenuation / greatest : 0.0f;

        veltraio::ChannelAttenuation message;
        message.set_deviceindex (deviceIndex);
        message.set_channel (channel);
        message.set_attenuation (fraction > 0.0f ? std::min (fraction, 1.0f) : 0.0f); // 0 also for NaN
        return sendCommand (dispatcher, message, kShortTimeout_ms).isAcknowledged();
    });
}

float DeviceImpl::GetChannelAttenuation (std::uint32_t channel)
{
    return operation (0.0f, [=, this] {
        auto request = makeRequest (Request::RequestType_kGetChannelAttenuation, deviceIndex);
        request.set_channel (channel);
        const auto answer = query<veltraio::ChannelAttenuation> (dispatcher, request, kShortTimeout_ms);
        return answer ? answer->attenuation() * GetMaxChannelAttenuation() : 0.0f;
    });
}

}
