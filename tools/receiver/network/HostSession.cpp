// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/HostSession.h"

#include <algorithm>
#include <iomanip>
#include <optional>
#include <sstream>

#include "common/BigEndian.h"
#include "protocol/Envelope.h"
#include "tools/receiver/device/Messages.h"

namespace veltra::receiver {

namespace {

constexpr std::size_t kHeaderSize = 3 + 4 + 4 + 4; // marker, length, identifier, checksum

using Action = Fault::Action;

const Fault* find (const std::vector<Fault>& faults, Action action)
{
    const auto found =
        std::find_if (faults.begin(), faults.end(), [&] (const auto& fault) { return fault.action == action; });
    return found == faults.end() ? nullptr : &*found;
}

/** Bytes that a parser has to skip. Beginnings of a marker are among them, but not at the end, where they would
    consume the first byte of the marker that follows. */
std::string noise (std::uint32_t count)
{
    constexpr std::string_view pattern ("\x21\x01\x00\x7F\x21\x55\xFF\x01\x33", 9);
    std::string bytes;

    while (bytes.size() < count)
        bytes += pattern[bytes.size() % pattern.size()];

    if (bytes.ends_with ('\x21') || bytes.ends_with ("\x21\x01"))
        bytes.back() = '\x33';

    return bytes;
}

std::string unknownName (std::int32_t messageId)
{
    std::ostringstream name;
    name << "0x" << std::hex << std::setw (8) << std::setfill ('0') << static_cast<std::uint32_t> (messageId);
    return name.str();
}

}

/** An envelope before it is written. */
struct HostSession::Outgoing
{
    std::uint32_t messageId;
    std::string body;

    explicit Outgoing (const google::protobuf::MessageLite& message)
        : messageId (veltraio::envelopeHash (message.GetTypeName())),
          body (message.SerializePartialAsString())
    {
    }

    std::string write (bool withWrongChecksum, std::uint32_t missingBytes) const
    {
        return std::string (veltraio::kDefaultEnvelopeMarker.begin(), veltraio::kDefaultEnvelopeMarker.end())
               + bigEndian (static_cast<std::uint32_t> (body.size()) + missingBytes) + bigEndian (messageId)
               + bigEndian (veltraio::envelopeHash (body) + (withWrongChecksum ? 1 : 0)) + body;
    }
};

HostSession::HostSession (std::uint32_t number, Descriptor socket, const SessionContext& sharedParts,
                          std::vector<Fault> faults)
    : shared (sharedParts),
      connection (std::move (socket), stop)
{
    conversation.session = number;
    conversation.send = [this] (const auto& message) { return send (message); };
    thread = std::thread ([this, connectFaults = std::move (faults)] { run (connectFaults); });
}

HostSession::~HostSession()
{
    stop.raise();
    thread.join();
}

void HostSession::end (Ending how)
{
    ending = how;
    stop.raise();
}

void HostSession::log (LogDetail detail, const std::string& text) const
{
    if (shared.log)
        shared.log (detail, "session " + std::to_string (conversation.session) + ": " + text);
}

std::vector<Fault> HostSession::nextFaults (const std::vector<std::string_view>& names)
{
    auto faults = shared.faults.next (names);

    for (const auto& fault : faults)
        log (LogDetail::events,
             "fault \"" + std::string (actionName (fault.action)) + "\" at " + std::string (names.back()));

    return faults;
}

void HostSession::run (const std::vector<Fault>& connectFaults)
{
    log (LogDetail::events, "connected");

    if (const auto* delay = find (connectFaults, Action::delay))
        stop.pause (delay->pause);

    if (const auto* fault = find (connectFaults, Action::noise))
        connection.send (noise (fault->bytes));

    if (find (connectFaults, Action::close) != nullptr)
        end (Ending::close);

    if (find (connectFaults, Action::reset) != nullptr)
        end (Ending::reset);

    char bytes[4096];

    while (const auto received = connection.receive (bytes, sizeof (bytes)))
    {
        heard = std::chrono::steady_clock::now();
        shared.recorder.addBytes (conversation.session, { bytes, received });
        feed (reinterpret_cast<const std::uint8_t*> (bytes), static_cast<std::uint32_t> (received));
    }

    // Other threads that are sending return now, and none starts to send after this.
    stop.raise();
    shared.model.sessionEnded (conversation);
    {
        const std::scoped_lock guard (sending);

        if (ending == Ending::reset)
            connection.reset();
        else
            connection.close();
    }
    log (LogDetail::events, "disconnected");
    shared.recorder.sessionEnded();
    over = true;
}

void HostSession::onEnvelope (const juce::MemoryBlock& block)
{
    if (stop.isRaised())
        return;

    const auto envelope = veltraio::getEnvelope (block);

    if (! envelope)
    {
        log (LogDetail::events, "dropped an envelope with a wrong checksum");
        return;
    }

    const auto name = messageName (static_cast<std::uint32_t> (envelope->messageId));
    const std::string body (static_cast<const char*> (envelope->body), envelope->bodySize);
    std::vector<std::string_view> names { "*", name };

    if (name == "Request")
    {
        veltraio::Request request;

        if (request.ParsePartialFromString (body) && request.has_requesttype())
            names.push_back (requestName (request.requesttype()));
    }

    handle (name.empty() ? unknownName (envelope->messageId) : std::string (name), body, nextFaults (names));
}

void HostSession::handle (const std::string& type, const std::string& body, const std::vector<Fault>& faults)
{
    if (const auto* limit = find (faults, Action::limit))
        shared.messageLimit = limit->bytes;

    ReceivedMessage record { conversation.session, type, body, false, {} };

    if (find (faults, Action::lose) != nullptr)
    {
        shared.recorder.addMessage (std::move (record));
        return;
    }

    std::unique_ptr<google::protobuf::MessageLite> reply;

    try
    {
        const auto limit = shared.messageLimit.load();
        const auto size = kHeaderSize + body.size();

        if (const auto* refuse = find (faults, Action::refuse))
            throw Refusal (refuse->text);

        if (limit != 0 && size > limit)
            throw Refusal ("Envelope of " + std::to_string (size) + " bytes exceeds the limit of "
                           + std::to_string (limit));

        reply = shared.model.handle (conversation, type.starts_with ("0x") ? std::string_view {} : type, body);
        record.wasCarriedOut = true;
        log (LogDetail::messages, type + " (" + std::to_string (body.size()) + " bytes) carried out");
    }
    catch (const Refusal& refusal)
    {
        log (LogDetail::events, type + " refused: " + refusal.what());
        record.refusal = refusal.what();
        auto refused = std::make_unique<veltraio::Acknowledge>();
        refused->set_ok (false);

        if (! record.refusal->empty())
            refused->set_errormessage (*record.refusal);

        reply = std::move (refused);
    }

    shared.recorder.addMessage (std::move (record));

    if (reply != nullptr)
        deliver (Outgoing (*reply), faults);
}

bool HostSession::send (const google::protobuf::MessageLite& message)
{
    if (stop.isRaised())
        return false;

    const auto name = nameOf (message);
    deliver (Outgoing (message), nextFaults ({ name }));
    return ! stop.isRaised();
}

void HostSession::deliver (Outgoing message, const std::vector<Fault>& faults)
{
    if (const auto* answer = find (faults, Action::answer))
    {
        message.messageId = veltraio::envelopeHash ("veltraio." + answer->text);
        message.body = answer->body;
    }

    if (const auto* truncate = find (faults, Action::truncate))
        message.body.resize (std::min<std::size_t> (message.body.size(), truncate->bytes));

    std::string bytes;

    if (const auto* fault = find (faults, Action::noise))
        bytes = noise (fault->bytes);

    const auto* duplicate = find (faults, Action::duplicate);
    const auto copies = duplicate == nullptr ? 1 : duplicate->bytes == 0 ? 2 : duplicate->bytes;
    const auto* wrongLength = find (faults, Action::wrongLength);

    for (std::uint32_t copy = 0; copy < copies; ++copy)
        bytes += message.write (find (faults, Action::wrongChecksum) != nullptr,
                                wrongLength == nullptr ? 0 : wrongLength->bytes);

    if (find (faults, Action::lose) != nullptr || find (faults, Action::loseReply) != nullptr)
        bytes.clear();

    if (const auto* delay = find (faults, Action::delay); delay != nullptr && ! stop.pause (delay->pause))
        return;

    transmit (bytes, faults);
}

void HostSession::transmit (std::string_view bytes, const std::vector<Fault>& faults)
{
    const auto* close = find (faults, Action::close);
    const auto* reset = find (faults, Action::reset);

    if (close != nullptr || reset != nullptr)
        bytes = bytes.substr (0, (close != nullptr ? close : reset)->bytes);

    const auto* pieces = find (faults, Action::pieces);
    const auto size = pieces != nullptr ? std::max<std::size_t> (pieces->bytes, 1) : bytes.size();
    {
        const std::scoped_lock guard (sending);

        while (! bytes.empty())
        {
            const auto piece = bytes.substr (0, size);
            bytes.remove_prefix (piece.size());

            if (! connection.send (piece) || (pieces != nullptr && ! bytes.empty() && ! stop.pause (pieces->pause)))
                break;
        }

        if (! bytes.empty())
            stop.raise();
    }

    if (close != nullptr)
        end (Ending::close);
    else if (reset != nullptr)
        end (Ending::reset);
}

}
