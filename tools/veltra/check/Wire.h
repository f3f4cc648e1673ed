// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <juce_core/juce_core.h>

#include "protocol/EnvelopeParser.h"
#include "protocol/veltraio.pb.h"

namespace veltra::check {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using google::protobuf::MessageLite;

/** Thrown by a check that has found something: three texts for a person. */
struct Finding
{
    std::string sent, expected, came;
};

/** Where the receiver is, and how patient the checks are. */
struct Target
{
    std::string host;
    int port = 0;
    Milliseconds slack { 0 }; ///< in addition to the waits of docs/wire-format.md

    /** Whether the user wants the checks to end. May be empty. */
    std::function<bool()> isCancelled;
};

/** Ends a run that the user has cancelled. */
struct Cancelled
{
};

/** An envelope that came. */
struct Incoming
{
    std::string name; ///< of the message, without its package; empty for an identifier that the schema does not have
    std::string body;
    bool isIntact = true; ///< its checksum fits
    Clock::time_point arrival;
};

/** A captured packet of the microphone. */
struct Packet
{
    std::uint32_t number = 0;
    std::vector<float> samples;
    Clock::time_point arrival;
};

/** A connection to a receiver that shows exactly what comes and when. Reads only when asked. One thread. */
class Wire final : private veltraio::VeltraIOEnvelopeParser
{
public:
    /** @throws  Finding when there is no connection within two seconds and the slack */
    explicit Wire (const Target&);

    void sendBytes (std::string_view bytes);
    void send (const MessageLite& message);

    /** The next envelope that is not AudioData; nothing when the time is over or the connection has ended.
        @throws  Cancelled */
    std::optional<Incoming> next (Milliseconds timeout);

    /** Sends a question and reads its answer within the wait of the protocol.
        @throws  Finding when something else comes */
    template <class Answer>
    Answer ask (const MessageLite& question)
    {
        Answer answer;
        askFor (question, answer);
        return answer;
    }

    /** Sends a command that has to be carried out. @throws Finding */
    void command (const MessageLite& message);

    /** Sends what has to be refused. @returns the receiver's words @throws Finding */
    std::string refusal (const MessageLite& message);

    /** Reads the answer to something that was sent; `sent` says what, for a finding. */
    void expect (MessageLite& answer, const std::string& sent, Milliseconds wait);
    void expectAcknowledge (bool isOk, const std::string& sent, Milliseconds wait);

    /** @throws  Finding when an envelope comes within the time, or the connection ends */
    void expectSilence (const std::string& sent, Milliseconds duration);

    /** Reads for that long. */
    void listen (Milliseconds duration);

    /** What came of the microphone since the last call. */
    std::vector<Packet> takeAudio() { return std::exchange (audio, {}); }

    bool hasEnded() const noexcept { return ended; }
    Milliseconds slack() const noexcept { return target.slack; }

private:
    void askFor (const MessageLite& question, MessageLite& answer);
    bool read (Clock::time_point deadline);
    void onEnvelope (const juce::MemoryBlock& block) override;
    std::string describeMissing (Milliseconds wait) const;

    const Target& target;
    juce::StreamingSocket socket;
    std::deque<Incoming> waiting;
    std::vector<Packet> audio;
    std::uint64_t bytesRead = 0, bytesOfEnvelopes = 0;
    bool ended = false;
};

/** How long the plug-in waits for the answer to a message. */
Milliseconds waitFor (const MessageLite& message);

/** An envelope as it goes on the wire. */
std::string envelopeOf (const MessageLite& message);

/** A message for a person, on one line: name and fields, cut when it is long. */
std::string describe (const MessageLite& message);
std::string describe (const Incoming& incoming);

veltraio::Request request (veltraio::Request::RequestType type, std::uint32_t channel = 0);

}
