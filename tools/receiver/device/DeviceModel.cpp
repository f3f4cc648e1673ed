// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/DeviceModel.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tools/receiver/device/Messages.h"

namespace veltra::receiver {

namespace {

template <typename Message>
Message parse (std::string_view body)
{
    // The partial form prints nothing to standard error.
    Message message;

    if (! message.ParsePartialFromArray (body.data(), static_cast<int> (body.size())))
        throw Refusal (nameOf (message) + " cannot be read");

    if (! message.IsInitialized())
        throw Refusal (nameOf (message) + " lacks a required field");

    return message;
}

void requireFraction (float value, const char* what)
{
    if (! (value >= 0.0f && value <= 1.0f))
        throw Refusal (std::string (what) + " is not between 0 and 1");
}

}

template <typename Message>
void DeviceModel::command (void (DeviceModel::*operation) (Conversation&, const Message&))
{
    handlers[nameOf (Message::default_instance())] = [this, operation] (Conversation& conversation,
                                                                        std::string_view body) {
        (this->*operation) (conversation, parse<Message> (body));
        auto done = std::make_unique<veltraio::Acknowledge>();
        done->set_ok (true);
        return done;
    };
}

DeviceModel::DeviceModel (Profile description, const MeasurementOptions& measurementOptions, DownloadCallback callback)
    : profile (std::move (description)),
      options (measurementOptions),
      onDownload (std::move (callback)),
      devices (profile.unit.devices().begin(), profile.unit.devices().end()),
      room (options.room)
{
    checkMeasurement();

    handlers["Request"] = [this] (Conversation&, std::string_view body) {
        return answer (parse<veltraio::Request> (body));
    };
    handlers["Ping"] = [] (Conversation&, std::string_view) { return std::make_unique<veltraio::Pong>(); };
    handlers["Pong"] = handlers["Acknowledge"] = [] (Conversation&, std::string_view) { return Reply {}; };

    command (&DeviceModel::setVolume);
    command (&DeviceModel::setAttenuation);
    command (&DeviceModel::setActiveSlot);
    command (&DeviceModel::setFiltering);
    command (&DeviceModel::loadFilter);
    command (&DeviceModel::addChannel);
    command (&DeviceModel::addBlock);
    command (&DeviceModel::addChunk);
    command (&DeviceModel::cancelDownload);
    command (&DeviceModel::removeFilter);
    command (&DeviceModel::setMode);
    command (&DeviceModel::startStimulus);
    command (&DeviceModel::stopStimulus);
}

DeviceModel::~DeviceModel() = default;

std::unique_ptr<google::protobuf::MessageLite> DeviceModel::handle (Conversation& conversation, std::string_view type,
                                                                    std::string_view body)
{
    const auto handler = handlers.find (type);

    if (handler == handlers.end())
        throw Refusal (type.empty() ? std::string ("Unknown message") : "Unexpected message " + std::string (type));

    Reply reply;
    std::function<void()> call;
    {
        const std::scoped_lock guard (lock);
        afterwards = nullptr;
        reply = handler->second (conversation, body);
        call = std::exchange (afterwards, nullptr);
    }

    if (call)
        call();

    return reply;
}

void DeviceModel::sessionEnded (const Conversation& conversation)
{
    const std::scoped_lock guard (lock);

    if (mode.isMeasuring && mode.session == conversation.session)
        leaveMeasurement();
}

DeviceModel::Settings DeviceModel::settings (std::uint32_t index) const
{
    const std::scoped_lock guard (lock);
    return devices.at (index).settings;
}

std::vector<Slot> DeviceModel::slots (std::uint32_t index) const
{
    const std::scoped_lock guard (lock);
    return devices.at (index).memory.slots();
}

DeviceModel::Device& DeviceModel::device (std::uint32_t index)
{
    if (index >= devices.size())
        throw Refusal ("No device " + std::to_string (index) + ", the receiver has " + std::to_string (devices.size()));

    return devices[index];
}

const veltraio::Unit::Device::ChannelInfo& DeviceModel::channel (std::uint32_t index, std::uint32_t channelIndex) const
{
    const auto& channels = profile.unit.devices (static_cast<int> (index)).outputchannels();
    const auto found = std::find_if (channels.begin(), channels.end(),
                                     [&] (const auto& candidate) { return candidate.channelindex() == channelIndex; });

    if (found == channels.end())
        throw Refusal ("No channel " + std::to_string (channelIndex));

    return *found;
}

DeviceModel::Reply DeviceModel::answer (const veltraio::Request& request)
{
    using veltraio::Request;
    const auto index = request.deviceindex();
    const auto copy = [] (const auto& message) { return std::make_unique<std::decay_t<decltype (message)>> (message); };

    switch (request.requesttype())
    {
        // The descriptions do not depend on the device index: a unit without devices has them too.
        case Request::RequestType_kGetProtocolInfo: return copy (profile.protocolInfo);
        case Request::RequestType_kGetUnit: return copy (describe());
        case Request::RequestType_kGetTopologyInfo: return copy (profile.topologyInfo);
        case Request::RequestType_kGetStimulusInfo: return copy (profile.stimulusInfo);

        case Request::RequestType_kGetVolume:
        {
            veltraio::Volume volume;
            volume.set_deviceindex (index);
            volume.set_volume (device (index).settings.volume);
            volume.set_description (std::to_string (std::lround (100.0f * volume.volume())) + " %");
            return copy (volume);
        }
        case Request::RequestType_kGetChannelAttenuation:
        {
            const auto& attenuations = device (index).settings.attenuation;
            const auto found = attenuations.find (channel (index, request.channel()).channelindex());
            veltraio::ChannelAttenuation attenuation;
            attenuation.set_deviceindex (index);
            attenuation.set_channel (request.channel());
            attenuation.set_attenuation (found == attenuations.end() ? 0.0f : found->second);
            return copy (attenuation);
        }
        case Request::RequestType_kGetActiveFilterSlot:
        {
            veltraio::ActiveFilterSlot slot;
            slot.set_deviceindex (index);
            slot.set_slotindex (device (index).settings.activeSlot);
            return copy (slot);
        }
        case Request::RequestType_kGetStimulusState:
        {
            const auto status = microphone != nullptr ? microphone->status() : MicrophoneStream::Status {};
            veltraio::StimulusState state;
            state.set_isplaying (status.isPlaying);

            if (status.isPlaying)
                state.set_progress (status.progress);

            return copy (state);
        }
        case Request::RequestType_kGetFilteringState:
        {
            veltraio::FilteringState state;
            state.set_deviceindex (index);
            state.set_isfiltering (device (index).settings.isFiltering);
            return copy (state);
        }
    }

    throw Refusal ("Unknown request");
}

veltraio::Unit DeviceModel::describe() const
{
    auto unit = profile.unit;

    for (std::size_t d = 0; d < devices.size(); ++d)
    {
        auto& slots = *unit.mutable_devices (static_cast<int> (d))->mutable_filterslots();

        for (std::size_t s = 0; s < devices[d].memory.slots().size(); ++s)
        {
            const auto& held = devices[d].memory.slots()[s];
            auto& slot = slots[static_cast<int> (s)];
            slot.set_isoccupied (held.state == Slot::State::occupied);

            if (held.name.empty() || ! slot.isoccupied())
                slot.clear_name();
            else
                slot.set_name (held.name);
        }
    }

    return unit;
}

void DeviceModel::setVolume (Conversation&, const veltraio::Volume& message)
{
    auto& target = device (message.deviceindex());

    if ((profile.unit.capabilities() & veltraio::Unit::Caps_kVolume) == 0)
        throw Refusal ("The receiver has no volume control");

    requireFraction (message.volume(), "Volume");
    target.settings.volume = message.volume();
}

void DeviceModel::setAttenuation (Conversation&, const veltraio::ChannelAttenuation& message)
{
    auto& target = device (message.deviceindex());
    requireFraction (message.attenuation(), "Attenuation");
    target.settings.attenuation[channel (message.deviceindex(), message.channel()).channelindex()] =
        message.attenuation();
}

void DeviceModel::setActiveSlot (Conversation&, const veltraio::ActiveFilterSlot& message)
{
    auto& target = device (message.deviceindex());
    target.memory.requireSlot (message.slotindex());
    target.settings.activeSlot = message.slotindex();
}

void DeviceModel::setFiltering (Conversation&, const veltraio::FilteringState& message)
{
    device (message.deviceindex()).settings.isFiltering = message.isfiltering();
}

}
