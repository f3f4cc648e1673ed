// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/check/Wire.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "common/BigEndian.h"
#include "common/Text.h"
#include "protocol/Envelope.h"
#include "protocol/HostLookup.h"
#include "protocol/SocketPlatform.h"
#include "protocol/TextForm.h"
#include "tools/receiver/device/Messages.h"

namespace veltra::check {

namespace {

constexpr Milliseconds kConnectWait { 2000 };
constexpr Milliseconds kLook { 100 }; // how often a wait looks whether the user cancels
constexpr std::size_t kLongestText = 200;

using veltraio::Request;

/** The waits of docs/wire-format.md that are not 1000 ms. */
const std::map<std::string, int> kWaits_ms {
    { "Volume", 500 },           { "ChannelAttenuation", 500 }, { "FilteringState", 500 }, { "StartStimulus", 2000 },
    { "StopStimulus", 2000 },    { "RemoveFilter", 2000 },      { "LoadFilter", 5000 },    { "FilterData", 5000 },
    { "FilterDataChunk", 3000 }, { "DownloadCancelled", 3000 },
};

int requestWait_ms (Request::RequestType type)
{
    switch (type)
    {
        case Request::RequestType_kGetUnit:
        case Request::RequestType_kGetTopologyInfo:
        case Request::RequestType_kGetStimulusInfo: return 2000;

        case Request::RequestType_kGetProtocolInfo:
        case Request::RequestType_kGetActiveFilterSlot: return 1000;

        default: return 500;
    }
}

}

Milliseconds waitFor (const MessageLite& message)
{
    if (const auto* const question = dynamic_cast<const Request*> (&message))
        return Milliseconds (requestWait_ms (question->requesttype()));

    const auto found = kWaits_ms.find (receiver::nameOf (message));
    return Milliseconds (found == kWaits_ms.end() ? 1000 : found->second);
}

std::string envelopeOf (const MessageLite& message)
{
    const auto body = message.SerializePartialAsString();
    return std::string (veltraio::kDefaultEnvelopeMarker.begin(), veltraio::kDefaultEnvelopeMarker.end())
           + bigEndian (static_cast<std::uint32_t> (body.size()))
           + bigEndian (veltraio::envelopeHash (message.GetTypeName())) + bigEndian (veltraio::envelopeHash (body))
           + body;
}

std::string describe (const MessageLite& message)
{
    auto text = veltraio::toText (message);
    std::replace (text.begin(), text.end(), '\n', ' ');
    return receiver::nameOf (message) + " { " + logText (text, kLongestText) + "}";
}

std::string describe (const Incoming& incoming)
{
    const auto message = receiver::createMessage (incoming.name);

    if (message == nullptr)
        return "a message with an unknown identifier";

    const std::string flaw = ! incoming.isIntact                                 ? " with a wrong checksum"
                             : ! message->ParsePartialFromString (incoming.body) ? " that cannot be read"
                             : ! message->IsInitialized()                        ? " without a required field"
                                                                                 : "";
    return flaw.empty() ? describe (*message) : incoming.name + flaw;
}

Request request (Request::RequestType type, std::uint32_t channel)
{
    Request message;
    message.set_requesttype (type);
    message.set_deviceindex (0);

    if (type == Request::RequestType_kGetChannelAttenuation)
        message.set_channel (channel);

    return message;
}

Wire::Wire (const Target& theTarget) : target (theTarget)
{
    const auto wait = kConnectWait + target.slack;
    const auto addresses = lookUpHost (target.host, Clock::now() + wait, [] { return false; });
    const bool isConnected = std::any_of (addresses.begin(), addresses.end(), [&] (const auto& address) {
        return socket.connect (juce::String (address), target.port, static_cast<int> (wait.count()));
    });

    if (! isConnected)
        throw Finding { "a connection to " + target.host + ":" + std::to_string (target.port), "that it is taken",
                        "no connection within " + std::to_string (wait.count()) + " ms" };

    ipc::platform::prepareSocket (socket.getRawSocketHandle());
}

void Wire::sendBytes (std::string_view bytes)
{
    // Blocks for some seconds at most. What a connection that has ended does not take shows in the missing answer.
    while (! bytes.empty())
    {
        const auto sent = ipc::platform::sendBytes (socket.getRawSocketHandle(), bytes.data(),
                                                    static_cast<int> (bytes.size()), ipc::platform::Blocking::yes);

        if (sent <= 0)
            return;

        bytes.remove_prefix (static_cast<std::size_t> (sent));
    }
}

void Wire::send (const MessageLite& message) { sendBytes (envelopeOf (message)); }

/** @returns  false when the time is over or the connection has ended */
bool Wire::read (Clock::time_point deadline)
{
    for (;;)
    {
        if (target.isCancelled && target.isCancelled())
            throw Cancelled {};

        const auto left = std::chrono::duration_cast<Milliseconds> (deadline - Clock::now());

        if (ended || left.count() < 0)
            return false;

        const auto ready = socket.waitUntilReady (true, static_cast<int> (std::min (left, kLook).count()));

        if (ready == 0)
            continue;

        std::array<std::uint8_t, 65536> bytes;
        const auto received =
            ready < 0 ? 0 : ipc::platform::receiveBytes (socket.getRawSocketHandle(), bytes.data(), std::ssize (bytes));

        if (received <= 0)
        {
            ended = true;
            return false;
        }

        bytesRead += static_cast<std::uint64_t> (received);
        feed (bytes.data(), static_cast<std::uint32_t> (received));
        return true;
    }
}

void Wire::onEnvelope (const juce::MemoryBlock& block)
{
    const auto* const bytes = static_cast<const char*> (block.getData());
    bytesOfEnvelopes += veltraio::kDefaultEnvelopeMarker.size() + 4 + block.getSize();

    Incoming incoming { std::string (receiver::messageName (getBigEndian (bytes))),
                        { bytes + 8, block.getSize() - 8 },
                        veltraio::getEnvelope (block).has_value(),
                        Clock::now() };
    veltraio::AudioData data;

    if (incoming.name != "AudioData" || ! incoming.isIntact || ! data.ParseFromString (incoming.body))
        waiting.push_back (std::move (incoming));
    else
        audio.push_back ({ data.packetnumber(), { data.data().begin(), data.data().end() }, incoming.arrival });
}

std::optional<Incoming> Wire::next (Milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;

    while (waiting.empty())
        if (! read (deadline))
            return std::nullopt;

    auto first = std::move (waiting.front());
    waiting.pop_front();
    return first;
}

void Wire::listen (Milliseconds duration)
{
    for (const auto deadline = Clock::now() + duration; read (deadline);)
    {
    }
}

std::string Wire::describeMissing (Milliseconds wait) const
{
    return ended ? "the end of the connection" : "nothing within " + std::to_string (wait.count()) + " ms";
}

void Wire::expect (MessageLite& answer, const std::string& sent, Milliseconds wait)
{
    const auto wanted = receiver::nameOf (answer);
    const auto incoming = next (wait + target.slack);

    if (! incoming)
        throw Finding { sent, wanted, describeMissing (wait + target.slack) };

    if (incoming->name != wanted || ! incoming->isIntact || ! answer.ParseFromString (incoming->body))
        throw Finding { sent, wanted, describe (*incoming) };

    // Other envelopes that have come count as their own.
    if (waiting.empty() && bytesRead != bytesOfEnvelopes)
        throw Finding { sent, wanted + " and nothing else",
                        std::to_string (bytesRead - bytesOfEnvelopes) + " bytes outside of envelopes" };
}

void Wire::askFor (const MessageLite& question, MessageLite& answer)
{
    send (question);
    expect (answer, describe (question), waitFor (question));
}

void Wire::expectAcknowledge (bool isOk, const std::string& sent, Milliseconds wait)
{
    veltraio::Acknowledge answer;
    expect (answer, sent, wait);

    if (answer.ok() != isOk)
        throw Finding { sent, isOk ? "Acknowledge { ok: true }" : "a refusal", describe (answer) };
}

void Wire::command (const MessageLite& message)
{
    send (message);
    expectAcknowledge (true, describe (message), waitFor (message));
}

std::string Wire::refusal (const MessageLite& message)
{
    send (message);
    veltraio::Acknowledge answer;
    expect (answer, describe (message), waitFor (message));

    if (answer.ok())
        throw Finding { describe (message), "a refusal", describe (answer) };

    return answer.errormessage();
}

void Wire::expectSilence (const std::string& sent, Milliseconds duration)
{
    if (const auto incoming = next (duration))
        throw Finding { sent, "nothing more", describe (*incoming) };

    if (ended)
        throw Finding { sent, "nothing, and that the connection stays open", "the end of the connection" };
}

}
