// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/trace/Tracer.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

#include "common/BigEndian.h"
#include "common/Text.h"
#include "protocol/Envelope.h"
#include "tools/receiver/device/Messages.h"

namespace veltra::trace {

namespace {

using SystemClock = std::chrono::system_clock;

/** Hours, minutes, seconds and microseconds, in universal time as the recording has them. */
std::string timeText (SystemClock::time_point time)
{
    using namespace std::chrono;
    const auto ofDay = duration_cast<microseconds> (time - floor<days> (time)).count();
    char text[32];
    std::snprintf (text, sizeof (text), "%02d:%02d:%02d.%06d", static_cast<int> (ofDay / 3'600'000'000),
                   static_cast<int> (ofDay / 60'000'000 % 60), static_cast<int> (ofDay / 1'000'000 % 60),
                   static_cast<int> (ofDay % 1'000'000));
    return text;
}

const char* nameOf (Side side) { return side == Side::host ? "host" : "receiver"; }

std::string expectedAnswer (const check::Incoming& question)
{
    if (question.name == "Ping")
        return "Pong";

    veltraio::Request request;

    if (question.name == "Request" && request.ParsePartialFromString (question.body))
        return std::string (receiver::requestName (request.requesttype())).substr (sizeof ("Get") - 1);

    return "Acknowledge";
}

}

/** The envelopes of one direction. */
class Tracer::Stream final : public veltraio::VeltraIOEnvelopeParser
{
public:
    Stream (Tracer& theTracer, Connection& theConnection, Side sendingSide)
        : tracer (theTracer),
          connection (theConnection),
          sender (sendingSide)
    {
    }

private:
    void onEnvelope (const juce::MemoryBlock& block) override
    {
        const auto* const bytes = static_cast<const char*> (block.getData());
        const check::Incoming incoming { std::string (receiver::messageName (getBigEndian (bytes))),
                                         { bytes + 8, block.getSize() - 8 },
                                         veltraio::getEnvelope (block).has_value(),
                                         check::Clock::now() };
        tracer.envelope (connection, sender, incoming, ! incoming.name.empty());
    }

    Tracer& tracer;
    Connection& connection;
    const Side sender;
};

struct Tracer::Connection
{
    Connection (Tracer& tracer, unsigned theNumber)
        : number (theNumber),
          fromHost (tracer, *this, Side::host),
          fromReceiver (tracer, *this, Side::receiver)
    {
    }

    const unsigned number;
    Stream fromHost, fromReceiver;
    std::deque<Question> questions;
    std::optional<CaptureWriter::Conversation> recording;
};

Tracer::Tracer (Print printLine, CaptureWriter* captureWriter) : print (std::move (printLine)), writer (captureWriter)
{
}
Tracer::~Tracer() = default;

void Tracer::tell (std::string_view event, Json object, const std::string& text)
{
    const auto time = timeText (SystemClock::now());
    object["time"] = time;
    print (event, object, time + "  " + text + "\n");
}

void Tracer::opened (unsigned number)
{
    const std::scoped_lock guard (lock);
    auto& connection = *(connections[number] = std::make_unique<Connection> (*this, number));
    tell ("connected", { { "connection", number } }, "#" + std::to_string (number) + "    connected");

    if (writer != nullptr)
        connection.recording.emplace (*writer, SystemClock::now());
}

void Tracer::passed (unsigned number, Side sender, std::string_view bytes)
{
    const std::scoped_lock guard (lock);
    auto& connection = *connections.at (number);

    if (connection.recording)
        connection.recording->add (sender, bytes, SystemClock::now(), std::exchange (comment, {}));

    if (writer != nullptr && writer->isFull() && ! std::exchange (hasToldThatFull, true))
        tell ("full", Json::object(), "      the recording has reached its limit and ends here");

    auto& stream = sender == Side::host ? connection.fromHost : connection.fromReceiver;
    stream.feed (reinterpret_cast<const std::uint8_t*> (bytes.data()), static_cast<std::uint32_t> (bytes.size()));
}

void Tracer::closed (unsigned number, Side first)
{
    const std::scoped_lock guard (lock);
    const auto found = connections.find (number);

    if (found == connections.end())
        return;

    tell ("disconnected", { { "connection", number }, { "by", nameOf (first) } },
          "#" + std::to_string (number) + "    disconnected by the " + nameOf (first));

    if (found->second->recording)
        found->second->recording->close (first, SystemClock::now());

    connections.erase (found);
}

void Tracer::logged (const std::string& text)
{
    const std::scoped_lock guard (lock);
    tell ("log", { { "text", text } }, "log    " + logText (text));
    comment += (comment.empty() ? "" : "\n") + text;
}

void Tracer::envelope (Connection& connection, Side sender, const check::Incoming& incoming, bool isKnown)
{
    const auto shown = describe (incoming);
    auto text = "#" + std::to_string (connection.number) + (sender == Side::host ? "  > " : "  < ") + shown;
    Json object { { "connection", connection.number },
                  { "from", nameOf (sender) },
                  { "message", isKnown ? Json (incoming.name) : Json() },
                  { "text", shown } };

    if (sender == Side::host)
    {
        if (isKnown)
            connection.questions.push_back ({ expectedAnswer (incoming), incoming.arrival });
    }
    else if (incoming.name != "AudioData")
    {
        // Answers come in the order of the questions; those before the one that fits have none.
        auto& questions = connection.questions;
        const auto found = std::ranges::find_if (questions, [&] (const Question& question) {
            return incoming.name == "Acknowledge" || incoming.name == question.expected;
        });

        if (found != questions.end())
        {
            const std::chrono::duration<double, std::milli> time = incoming.arrival - found->time;
            object["answer_ms"] = time.count();
            char timeInText[32];
            std::snprintf (timeInText, sizeof (timeInText), "  %.3f ms", time.count());
            text += timeInText;
            questions.erase (questions.begin(), found + 1);
        }
        else
        {
            object["answer_ms"] = nullptr;
            text += "  answers no question";
        }
    }

    tell ("envelope", std::move (object), text);
}

}
