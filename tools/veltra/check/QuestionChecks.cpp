// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Level 1: the receiver opens a session and answers every question.
*/

#include <algorithm>
#include <set>

#include "common/Text.h"
#include "tools/veltra/check/Check.h"
#include "topology/Topology.h"

namespace veltra::check {

namespace {

using veltraio::Request;

constexpr Milliseconds kQuiet { 100 }; // in which a second answer would come
constexpr std::uint32_t kLeastLimit = 80;

/** Asks on a connection of its own, and waits for a second answer, which must not come. */
template <class Answer>
Answer askOnce (const Subject& subject, const MessageLite& question)
{
    Wire wire (subject.target);
    auto answer = wire.ask<Answer> (question);
    wire.expectSilence (describe (question), kQuiet + wire.slack() / 20);
    return answer;
}

template <class Answer>
Answer askOnce (const Subject& subject, Request::RequestType type, std::uint32_t channel = 0)
{
    return askOnce<Answer> (subject, request (type, channel));
}

[[noreturn]] void fail (const MessageLite& answer, const std::string& expected, const std::string& came = {})
{
    throw Finding { "the question for " + std::string (answer.GetTypeName()).substr (sizeof ("veltraio.") - 1),
                    expected, came.empty() ? describe (answer) : came };
}

void opens (Subject& subject)
{
    constexpr Milliseconds stay { 100 };
    Wire wire (subject.target);
    wire.expectSilence ("a connection", stay);
}

void tellsProtocol (Subject& subject)
{
    subject.protocolInfo = askOnce<veltraio::ProtocolInfo> (subject, Request::RequestType_kGetProtocolInfo);

    if (subject.messageLimit() != 0 && subject.messageLimit() < kLeastLimit)
        fail (subject.protocolInfo, "a messageLimit of " + std::to_string (kLeastLimit) + " bytes at least, or 0");
}

void tellsUnit (Subject& subject)
{
    subject.unit = askOnce<veltraio::Unit> (subject, Request::RequestType_kGetUnit);

    if (subject.unit.devices().empty())
        fail (subject.unit, "one device at least");

    std::set<std::uint32_t> numbers;

    for (const auto& channel : subject.device().outputchannels())
        if (! numbers.insert (channel.channelindex()).second)
            fail (subject.unit, "another channelIndex for each channel",
                  "channelIndex " + std::to_string (channel.channelindex()) + " twice");

    if (numbers.empty())
        fail (subject.unit, "one of outputChannels at least", "none");

    for (const auto& configuration : subject.device().configurations())
        for (const auto channel : configuration.channels())
            if (! numbers.contains (channel))
                fail (subject.unit, "configurations of outputChannels", "channel " + std::to_string (channel));

    if (! (subject.unit.maxchannelattenuation_db() >= 0.0f))
        fail (subject.unit, "a maxChannelAttenuation_dB of 0 or more",
              numberText (subject.unit.maxchannelattenuation_db()));
}

bool offersRate (const Subject& subject, std::uint32_t rate)
{
    const auto& configurations = subject.device().configurations();
    return std::any_of (configurations.begin(), configurations.end(), [&] (const auto& configuration) {
        return std::ranges::find (configuration.samplerates(), rate) != configuration.samplerates().end();
    });
}

void tellsTopology (Subject& subject)
{
    subject.topologyInfo = askOnce<veltraio::TopologyInfo> (subject, Request::RequestType_kGetTopologyInfo);
    bool isUseful = false;

    for (const auto& entry : subject.topologyInfo.topologies())
    {
        const auto name = logText (entry.name()) + " at " + std::to_string (entry.samplerate()) + " Hz";

        if (topology::findTopology (juceText (entry.name())) == nullptr)
            fail (subject.topologyInfo, "names of topologies", name);

        const auto parameters = topology::parseParameters (juceText (entry.information()));

        for (const auto* const key : { "NbrOfFIRTaps", "NbrOfIIRSections" })
            if ((entry.name() == "FIIR" || std::string_view (key) == "NbrOfFIRTaps")
                && parameters[key].getIntValue() <= 0)
                fail (subject.topologyInfo, "a number of 1 or more for " + std::string (key),
                      "'" + logText (entry.information()) + "' of " + name);

        isUseful = isUseful || offersRate (subject, entry.samplerate());
    }

    if (! isUseful)
        fail (subject.topologyInfo, "an entry with the rate of a configuration", "none");
}

void tellsStimuli (Subject& subject)
{
    subject.stimulusInfo = askOnce<veltraio::StimulusInfo> (subject, Request::RequestType_kGetStimulusInfo);
}

void tellsVolume (Subject& subject)
{
    if (! subject.can (veltraio::Unit::Caps_kVolume))
        throw Skip { "the receiver has no volume (Caps_kVolume)" };

    const auto volume = askOnce<veltraio::Volume> (subject, Request::RequestType_kGetVolume);

    if (! (volume.volume() >= 0.0f && volume.volume() <= 1.0f))
        fail (volume, "a volume of 0 to 1");
}

void tellsAttenuations (Subject& subject)
{
    for (const auto& channel : subject.device().outputchannels())
    {
        const auto attenuation = askOnce<veltraio::ChannelAttenuation> (
            subject, Request::RequestType_kGetChannelAttenuation, channel.channelindex());

        if (attenuation.channel() != channel.channelindex())
            fail (attenuation, "channel " + std::to_string (channel.channelindex()));

        if (! (attenuation.attenuation() >= 0.0f && attenuation.attenuation() <= 1.0f))
            fail (attenuation, "an attenuation of 0 to 1");
    }
}

void tellsActiveSlot (Subject& subject)
{
    const auto slot = askOnce<veltraio::ActiveFilterSlot> (subject, Request::RequestType_kGetActiveFilterSlot);

    if (slot.slotindex() >= static_cast<std::uint32_t> (std::max (subject.device().filterslots_size(), 1)))
        fail (slot, "one of " + std::to_string (subject.device().filterslots_size()) + " slots");
}

void tellsFiltering (Subject& subject)
{
    askOnce<veltraio::FilteringState> (subject, Request::RequestType_kGetFilteringState);
}

void tellsStimulusState (Subject& subject)
{
    const auto state = askOnce<veltraio::StimulusState> (subject, Request::RequestType_kGetStimulusState);

    if (state.isplaying())
        fail (state, "that nothing plays");
}

void answersPing (Subject& subject) { askOnce<veltraio::Pong> (subject, veltraio::Ping()); }

}

void addQuestionChecks (std::vector<Check>& checks)
{
    const std::vector<Check> questions {
        { "opens", 1, "Opening a session", {}, opens },
        { "tells-protocol", 1, "Sending", { "opens" }, tellsProtocol },
        { "tells-unit", 1, "Opening a session", { "opens" }, tellsUnit },
        { "tells-topology", 1, "Topologies", { "tells-unit" }, tellsTopology },
        { "tells-stimuli", 1, "Measurement", { "opens" }, tellsStimuli },
        { "tells-volume", 1, "Volume and attenuation", { "tells-unit" }, tellsVolume },
        { "tells-attenuations", 1, "Volume and attenuation", { "tells-unit" }, tellsAttenuations },
        { "tells-active-slot", 1, "Exchanges", { "tells-unit" }, tellsActiveSlot },
        { "tells-filtering", 1, "Exchanges", { "opens" }, tellsFiltering },
        { "tells-stimulus-state", 1, "Measurement", { "opens" }, tellsStimulusState },
        { "answers-ping", 1, "Exchanges", { "opens" }, answersPing },
    };
    checks.insert (checks.end(), questions.begin(), questions.end());
}

}
