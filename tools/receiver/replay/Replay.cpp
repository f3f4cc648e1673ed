// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/replay/Replay.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

#include "common/BigEndian.h"
#include "protocol/Envelope.h"
#include "protocol/EnvelopeParser.h"
#include "protocol/veltraio.pb.h"
#include "tools/capture/CaptureReader.h"
#include "tools/receiver/device/Messages.h"

namespace veltra::receiver {

namespace {

/** Hands each envelope, as identifier and body, to a function. What has a wrong checksum is left out: nobody answers it. */
class Envelopes final : public veltraio::VeltraIOEnvelopeParser
{
public:
    explicit Envelopes (std::function<void (std::string)> takes) : take (std::move (takes)) {}

    void read (std::string_view bytes)
    {
        feed (reinterpret_cast<const std::uint8_t*> (bytes.data()), static_cast<std::uint32_t> (bytes.size()));
    }

private:
    void onEnvelope (const juce::MemoryBlock& block) override
    {
        const auto* const bytes = static_cast<const char*> (block.getData());

        if (veltraio::getEnvelope (block))
            take (std::string (bytes, 4) + std::string (bytes + 8, block.getSize() - 8));
    }

    const std::function<void (std::string)> take;
};

std::string nameIn (const std::string& question)
{
    const auto name = messageName (getBigEndian (question.data()));
    veltraio::Request request;

    if (name == "Request" && request.ParsePartialFromString (question.substr (4)))
        return std::string (requestName (request.requesttype()));

    return name.empty() ? "an unknown message" : std::string (name);
}

std::string refusal()
{
    veltraio::Acknowledge message;
    message.set_ok (false);
    message.set_errormessage ("Not in the recording");
    const auto body = message.SerializeAsString();
    return std::string (veltraio::kDefaultEnvelopeMarker.begin(), veltraio::kDefaultEnvelopeMarker.end())
           + bigEndian (static_cast<std::uint32_t> (body.size()))
           + bigEndian (veltraio::envelopeHash (message.GetTypeName())) + bigEndian (veltraio::envelopeHash (body))
           + body;
}

}

std::vector<std::vector<RecordedExchange>> readExchanges (const std::filesystem::path& file)
try
{
    std::vector<std::vector<RecordedExchange>> result;

    for (const auto& conversation : capture::readCapture (file))
    {
        std::vector<RecordedExchange> exchanges;
        Envelopes questions ([&] (std::string question) { exchanges.push_back ({ std::move (question), {} }); });

        for (const auto& piece : conversation.pieces)
            if (piece.sender == capture::Side::host)
                questions.read (piece.bytes);
            else if (! exchanges.empty())
                exchanges.back().reply += piece.bytes;

        if (! exchanges.empty())
            result.push_back (std::move (exchanges));
    }

    return result;
}
catch (const std::runtime_error& reason)
{
    throw std::runtime_error (file.string() + ": " + reason.what());
}

/** One host's way through one conversation. */
class Replay::Session
{
public:
    Session (Replay& theReplay, unsigned theNumber, Descriptor socket)
        : replay (theReplay),
          number (theNumber),
          exchanges (theReplay.conversations[(theNumber - 1) % theReplay.conversations.size()]),
          connection (std::move (socket), theReplay.stop),
          thread ([this] { run(); })
    {
    }

    ~Session() { thread.join(); }

    Session (const Session&) = delete;
    Session& operator= (const Session&) = delete;

    bool isOver() const noexcept { return over; }

private:
    void run()
    {
        Envelopes envelopes ([this] (const std::string& question) { answer (question); });
        std::string buffer (65536, '\0');

        while (const auto count = connection.receive (buffer.data(), buffer.size()))
            envelopes.read (std::string_view (buffer).substr (0, count));

        if (place == exchanges.size())
            say ("has played the whole recording");
        else
            say ("ended at message " + std::to_string (place + 1) + " of " + std::to_string (exchanges.size())
                 + ", before " + nameIn (exchanges[place].question));

        over = true;
    }

    void answer (const std::string& question)
    {
        const auto next = exchanges.begin() + static_cast<std::ptrdiff_t> (place);
        const auto found = std::ranges::find (next, exchanges.end(), question, &RecordedExchange::question);

        if (found != next)
            say ("left the recording at message " + std::to_string (place + 1) + ": it sent " + nameIn (question)
                 + ", recorded is "
                 + (next == exchanges.end() ? "the end"
                                            : nameIn (next->question) + differenceTo (question, next->question))
                 + (found == exchanges.end()
                        ? ""
                        : "; it goes on at message " + std::to_string (found - exchanges.begin() + 1)));

        if (found == exchanges.end())
        {
            connection.send (refusal());
            return;
        }

        place = static_cast<std::size_t> (found - exchanges.begin()) + 1;
        connection.send (found->reply);
    }

    static std::string differenceTo (const std::string& sent, const std::string& recorded)
    {
        return nameIn (sent) == nameIn (recorded) ? " with other fields" : "";
    }

    void say (const std::string& text) { replay.say ("session " + std::to_string (number) + " " + text); }

    Replay& replay;
    const unsigned number;
    const std::vector<RecordedExchange>& exchanges;
    HostSocket connection;
    std::size_t place = 0; ///< of the next exchange
    std::atomic<bool> over { false };
    std::thread thread; // last: it uses all that is above
};

Replay::Replay (const std::filesystem::path& file, const std::string& address, std::uint16_t wantedPort, Log logger)
    : conversations (readExchanges (file)),
      log (std::move (logger)),
      listener (address, wantedPort)
{
    if (conversations.empty())
        throw std::runtime_error (file.string() + " holds no conversation");

    thread = std::thread ([this] { listen(); });
}

Replay::~Replay()
{
    stop.raise();

    if (thread.joinable())
        thread.join();
}

void Replay::say (const std::string& text)
{
    const std::scoped_lock guard (logging);
    log (text);
}

void Replay::listen()
{
    for (unsigned number = 1; auto socket = listener.accept (stop); ++number)
    {
        sessions.remove_if ([] (const Session& session) { return session.isOver(); });
        sessions.emplace_back (*this, number, std::move (*socket));
    }
}

}
