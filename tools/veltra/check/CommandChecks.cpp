// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Level 2: settings are kept, and what does not exist or is out of range is refused and changes nothing.
*/

#include <cmath>
#include <limits>

#include "tools/veltra/check/Check.h"

namespace veltra::check {

namespace {

using veltraio::Request;

constexpr float kTolerance = 1e-3f; // a receiver may keep its volume in steps
constexpr std::uint32_t kNoSuch = 1000;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN(), kInfinity = std::numeric_limits<float>::infinity();

veltraio::Volume volumeOf (float value)
{
    veltraio::Volume message;
    message.set_deviceindex (0);
    message.set_volume (value);
    return message;
}

veltraio::ChannelAttenuation attenuationOf (std::uint32_t channel, float value)
{
    veltraio::ChannelAttenuation message;
    message.set_deviceindex (0);
    message.set_channel (channel);
    message.set_attenuation (value);
    return message;
}

veltraio::ActiveFilterSlot activeSlot (std::uint32_t slot)
{
    veltraio::ActiveFilterSlot message;
    message.set_deviceindex (0);
    message.set_slotindex (slot);
    return message;
}

veltraio::FilteringState filteringOf (bool isOn)
{
    veltraio::FilteringState message;
    message.set_deviceindex (0);
    message.set_isfiltering (isOn);
    return message;
}

float volumeNow (Wire& wire) { return wire.ask<veltraio::Volume> (request (Request::RequestType_kGetVolume)).volume(); }

float attenuationNow (Wire& wire, std::uint32_t channel)
{
    return wire.ask<veltraio::ChannelAttenuation> (request (Request::RequestType_kGetChannelAttenuation, channel))
        .attenuation();
}

void compare (const MessageLite& sent, float expected, float came, float tolerance)
{
    if (! (std::abs (expected - came) <= tolerance))
        throw Finding { describe (sent), numberText (expected) + " afterwards", numberText (came) };
}

void setsVolume (Subject& subject)
{
    Wire wire (subject.target);
    const auto before = volumeNow (wire);

    // Never louder than it was.
    for (const auto value : { 0.5f * before, 0.0f, before })
    {
        wire.command (volumeOf (value));
        compare (volumeOf (value), value, volumeNow (wire), value == 0.0f ? 0.0f : 0.02f);
    }
}

void refusesVolume (Subject& subject)
{
    Wire wire (subject.target);
    const auto before = volumeNow (wire);

    for (const auto value : { 1.001f, -0.1f, kNan, kInfinity })
    {
        try
        {
            wire.refusal (volumeOf (value));
        }
        catch (const Finding&)
        {
            Wire (subject.target).command (volumeOf (before)); // at once: it may be loud now
            throw;
        }

        compare (volumeOf (value), before, volumeNow (wire), kTolerance);
    }
}

void setsAttenuations (Subject& subject)
{
    Wire wire (subject.target);

    for (const auto& channel : subject.device().outputchannels())
    {
        const auto number = channel.channelindex();
        const auto before = attenuationNow (wire, number);

        for (const auto value : { 1.0f, 0.5f + 0.5f * before, before }) // never less than it was
        {
            wire.command (attenuationOf (number, value));
            compare (attenuationOf (number, value), value, attenuationNow (wire, number), 0.02f);
        }
    }
}

void refusesAttenuations (Subject& subject)
{
    Wire wire (subject.target);
    const auto number = subject.device().outputchannels (0).channelindex();
    const auto before = attenuationNow (wire, number);

    for (const auto value : { 1.001f, -0.1f, kNan })
    {
        wire.refusal (attenuationOf (number, value));
        compare (attenuationOf (number, value), before, attenuationNow (wire, number), kTolerance);
    }

    wire.refusal (attenuationOf (kNoSuch, 1.0f));
    wire.refusal (request (Request::RequestType_kGetChannelAttenuation, kNoSuch));
}

void choosesSlots (Subject& subject)
{
    Wire wire (subject.target);
    const auto now = [&] {
        return wire.ask<veltraio::ActiveFilterSlot> (request (Request::RequestType_kGetActiveFilterSlot)).slotindex();
    };
    const auto before = now();
    const auto count = static_cast<std::uint32_t> (subject.device().filterslots_size());

    if (count == 0)
        throw Skip { "the receiver has no slots" };

    for (std::uint32_t slot = 0; slot <= count; ++slot)
    {
        const auto chosen = activeSlot (slot < count ? slot : before);
        wire.command (chosen);
        compare (chosen, static_cast<float> (chosen.slotindex()), static_cast<float> (now()), 0.0f);
    }
}

void switchesFiltering (Subject& subject)
{
    Wire wire (subject.target);
    const auto now = [&] {
        return wire.ask<veltraio::FilteringState> (request (Request::RequestType_kGetFilteringState)).isfiltering();
    };
    const auto before = now();

    for (const bool isOn : { ! before, before })
    {
        wire.command (filteringOf (isOn));
        compare (filteringOf (isOn), isOn ? 1.0f : 0.0f, now() ? 1.0f : 0.0f, 0.0f);
    }
}

void refusesUnknownSlots (Subject& subject)
{
    const auto slot = static_cast<std::uint32_t> (subject.device().filterslots_size());
    Wire wire (subject.target);
    veltraio::RemoveFilter removal;
    removal.set_deviceindex (0);
    removal.set_slotindex (slot);
    veltraio::LoadFilter load;
    load.set_deviceindex (0);
    load.set_slotindex (slot);
    load.mutable_filter()->set_name ("Check");
    load.mutable_filter()->set_noofchannels (1);
    wire.refusal (activeSlot (slot));
    wire.refusal (removal);
    wire.refusal (load);
}

void refusesIncomplete (Subject& subject)
{
    Wire wire (subject.target);
    veltraio::FilteringState empty;
    wire.refusal (empty);
    wire.refusal (Request());
}

void explainsRefusals (Subject& subject)
{
    Wire wire (subject.target);
    const auto unknown = activeSlot (static_cast<std::uint32_t> (subject.device().filterslots_size()));

    if (wire.refusal (unknown).empty())
        throw Finding { describe (unknown), "a refusal with an errorMessage", "one without" };
}

}

void addCommandChecks (std::vector<Check>& checks)
{
    const std::vector<Check> commands {
        { "sets-volume", 2, "Volume and attenuation", { "tells-volume" }, setsVolume },
        { "refuses-volume", 2, "Volume and attenuation", { "tells-volume" }, refusesVolume },
        { "sets-attenuations", 2, "Volume and attenuation", { "tells-attenuations" }, setsAttenuations },
        { "refuses-attenuations", 2, "Volume and attenuation", { "tells-attenuations" }, refusesAttenuations },
        { "chooses-slots", 2, "A download", { "tells-active-slot" }, choosesSlots },
        { "switches-filtering", 2, "A download", { "tells-filtering" }, switchesFiltering },
        { "refuses-unknown-slots", 2, "Exchanges", { "tells-unit" }, refusesUnknownSlots },
        { "refuses-incomplete-messages", 2, "Exchanges", { "tells-unit" }, refusesIncomplete },
        { "explains-refusals", 2, "Exchanges", { "refuses-unknown-slots" }, explainsRefusals },
    };
    checks.insert (checks.end(), commands.begin(), commands.end());
}

}
