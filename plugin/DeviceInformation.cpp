// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Making a device, and the operations that answer from what it said of itself.
*/

#include "plugin/DeviceImpl.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "common/Text.h"
#include "plugin/HostCall.h"

namespace veltra::plugin {

using namespace veltratune_io;

namespace {

constexpr const char* kDesignTechnology = "FIIR";

std::string displayName (const veltraio::Unit& unit, const std::string& deviceName, const std::string& friendlyName)
{
    const auto& lastPart = deviceName.empty() ? friendlyName : deviceName;
    return toValidUtf8 (unit.manufacturer() + "|" + unit.name() + "|" + lastPart);
}

/** The rates that filters are designed for. */
std::vector<std::uint32_t> designRates (const veltraio::TopologyInfo& info)
{
    std::vector<std::uint32_t> rates;

    for (const auto& topology : info.topologies())
        if (topology.name() == kDesignTechnology)
            rates.push_back (topology.samplerate());

    return rates.empty() ? std::vector<std::uint32_t> { 44100, 48000, 96000 } : rates;
}

bool isSubwoofer (const veltraio::Unit::Device::ChannelInfo& channel)
{
    return channel.type() == veltraio::Unit::Device::ChannelInfo::Type_kSubWoofer;
}

/** The low two hexadecimal digits of a channel's number, which is all that hosts read. */
std::string channelMark (std::uint32_t channelIndex)
{
    constexpr char digits[] = "0123456789abcdef";
    return { digits[channelIndex >> 4 & 0xF], digits[channelIndex & 0xF] };
}

}

DeviceImpl::DeviceImpl (veltraio::Dispatcher& dispatcherToUse, Descriptions descriptionsToKeep,
                        juce::PropertySet& settingsToUse, std::uint32_t index, const std::string& friendlyName)
    : dispatcher (dispatcherToUse),
      descriptions (std::move (descriptionsToKeep)),
      deviceIndex (index),
      deviceInfo (descriptions.unit.devices (static_cast<int> (index))),
      name (displayName (descriptions.unit, deviceInfo.name(), friendlyName)),
      settings (settingsToUse),
      sampleRates (designRates (descriptions.topologyInfo)),
      capture (dispatcher.getConnection())
{
    listOccupiedSlots();
}

DeviceImpl::~DeviceImpl() = default;

/** A slot that is in use when the session opens shows up as a set with a filter on every channel. */
void DeviceImpl::listOccupiedSlots()
{
    for (int slot = 0; slot < deviceInfo.filterslots_size(); ++slot)
    {
        const auto& description = deviceInfo.filterslots (slot);

        if (! description.isoccupied())
            continue;

        auto set = std::make_unique<filters::FilterSetsImpl> (
            toValidUtf8 (description.has_name() ? description.name() : "Filter"));

        for (int channel = 0; channel < deviceInfo.outputchannels_size(); ++channel)
        {
            const auto& info = deviceInfo.outputchannels (channel);
            filters::ChannelAttributes attributes;
            attributes.name = toValidUtf8 (info.name());
            attributes.channelNumber = static_cast<std::uint32_t> (channel);
            attributes.subwoofer = isSubwoofer (info) ? 1 : 0;
            set->addFilter (std::move (attributes));
        }

        filterSets[static_cast<std::uint32_t> (slot)].push_back (std::move (set));
    }
}

bool DeviceImpl::hasCapability (veltraio::Unit::Caps capability) const noexcept
{
    return (descriptions.unit.capabilities() & static_cast<std::uint32_t> (capability)) != 0;
}

bool DeviceImpl::offersSampleRate (std::uint32_t rate) const noexcept
{
    return std::find (sampleRates.begin(), sampleRates.end(), rate) != sampleRates.end();
}

const char* DeviceImpl::GetName() const { return name.c_str(); }

std::uint32_t DeviceImpl::GetCapabilities() const
{
    return kCapabilityFilterDownload | (hasCapability (veltraio::Unit::Caps_kVolume) ? kCapabilityVolume : 0u)
           | (hasCapability (veltraio::Unit::Caps_kAudioDataCallback) ? kCapabilityAudioDataCallback : 0u);
}

std::uint32_t DeviceImpl::GetExtendedCapabilities() const { return 0; }

std::uint32_t DeviceImpl::GetChannelCount() const
{
    return static_cast<std::uint32_t> (deviceInfo.outputchannels_size());
}

EResult DeviceImpl::GetChannelName (std::uint32_t index, char* buffer, std::uint32_t size) const
{
    return operation (kResultFailed, [=, this] {
        if (index >= GetChannelCount())
            return kResultBadIndex;

        const auto& channel = deviceInfo.outputchannels (static_cast<int> (index));
        const auto channelName = channel.name().substr (0, channel.name().find ('\0')); // the marks come behind it
        copyBounded (channelName + (isSubwoofer (channel) ? "#SUB" : "") + "#IDX" + channelMark (channel.channelindex())
                         + (channel.noeq() ? "#NOEQ" : ""),
                     buffer, size);
        return kResultOk;
    });
}

bool DeviceImpl::GetSampleRate (std::uint32_t index, std::uint32_t* rate) const
{
    if (rate == nullptr || index >= sampleRates.size())
        return false;

    *rate = sampleRates[index];
    return true;
}

std::uint32_t DeviceImpl::GetDefaultSampleRate() const { return 48000; }

std::uint32_t DeviceImpl::GetFilterSlotCount() const
{
    return static_cast<std::uint32_t> (deviceInfo.filterslots_size());
}

float DeviceImpl::GetMaxChannelAttenuation() const { return descriptions.unit.maxchannelattenuation_db(); }

EResult DeviceImpl::GetTopologyParameters (const char* technology, std::uint32_t rate, char* buffer,
                                           std::uint32_t size) const
{
    return operation (kResultFailed, [=, this] {
        if (technology == nullptr || buffer == nullptr)
            return kResultBadArgument;

        if (std::string_view (technology) != kDesignTechnology)
            return kResultBadTechnology;

        if (! offersSampleRate (rate))
            return kResultBadSampleRate;

        for (const auto& topology : descriptions.topologyInfo.topologies())
        {
            if (topology.name() == kDesignTechnology && topology.samplerate() == rate)
            {
                copyBounded (topology.information(), buffer, size);
                return kResultOk;
            }
        }

        const auto text = "NbrOfFIRTaps=" + std::to_string (rate / 48) + ";NbrOfIIRSections=30";
        copyBounded (text, buffer, size);
        return text.size() < size ? kResultOk : kResultBufferTooSmall;
    });
}

EResult DeviceImpl::GetLastError (char* buffer, std::uint32_t size)
{
    operation ([=, this] { copyBounded (lastError, buffer, size); });
    lastError.clear();
    return kResultOk;
}

bool DeviceImpl::IsReady() const { return true; }

EResult DeviceImpl::GetSerialNumber (char* buffer, std::uint32_t size) const
{
    return operation (kResultFailed, [=, this] {
        if (! descriptions.unit.has_serialnumber())
            return kResultFailed;

        copyBounded (descriptions.unit.serialnumber(), buffer, size);
        return kResultOk;
    });
}

EResult DeviceImpl::ReservedCall1 (std::uint64_t, std::uint64_t, std::uint64_t) { return kResultNotSupported; }
EResult DeviceImpl::ReservedCall2 (std::uint64_t, std::uint64_t) { return kResultNotSupported; }
EResult DeviceImpl::ReservedCall4 (std::uint64_t) { return kResultNotSupported; }
EResult DeviceImpl::ReservedCall5() { return kResultNotSupported; }
EResult DeviceImpl::ReservedCall6 (std::uint64_t, std::uint64_t, std::uint64_t) { return kResultNotSupported; }

EResult DeviceImpl::ReservedCall3 (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t)
{
    return kResultNotSupported;
}

EResult DeviceImpl::StartGenericStimulus (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t)
{
    return kResultNotSupported;
}

}
