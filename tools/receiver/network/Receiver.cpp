// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Receiver.h"

#include <algorithm>
#include <utility>

#include "tools/receiver/device/SlotReport.h"

namespace veltra::receiver {

namespace {

constexpr std::uint32_t kDefaultMessageLimit = 460;

/** How often a condition is checked when no message arrives: the state of a stimulus changes by itself. */
constexpr std::chrono::milliseconds kCheckInterval { 20 };

}

Receiver::Receiver (Profile profile) : Receiver (std::move (profile), Options()) {}

Receiver::Receiver (Profile profile, Options chosen)
    : options (std::move (chosen)),
      messageLimit (profile.protocolInfo.has_messagelimit() ? profile.protocolInfo.messagelimit()
                                                            : kDefaultMessageLimit),
      recorder (options.recordedBytes),
      model (std::move (profile), options.measurement, [this] (auto... download) { downloadEnded (download...); }),
      listener (options.bindAddress, options.port)
{
    faults.set (options.faults);
    thread = std::thread ([this] { listen(); });
}

Receiver::~Receiver()
{
    stop.raise();
    thread.join();

    for (const auto& session : sessions)
        session->end (HostSession::Ending::close);
}

std::string Receiver::address() const { return options.bindAddress + ":" + std::to_string (port()); }

void Receiver::log (LogDetail detail, const std::string& text)
{
    const std::scoped_lock guard (logging);

    if (options.log)
        options.log (detail, text);
}

void Receiver::downloadEnded (std::uint32_t device, std::uint32_t slotIndex, const Slot& slot)
{
    if (! options.folder.empty())
    {
        std::string error;

        if (! writeSlot (options.folder, device, slotIndex, slot, error))
        {
            writeFailed = true;
            log (LogDetail::events, error);
        }
    }

    if (options.onDownload)
        options.onDownload (device, slotIndex, slot);
}

bool Receiver::makeRoom()
{
    std::erase_if (sessions, [] (const auto& session) { return session->isOver(); });

    if (sessions.size() < kMaxSessions)
        return true;

    const auto longest = std::min_element (sessions.begin(), sessions.end(), [] (const auto& a, const auto& b) {
        return a->lastHeard() < b->lastHeard();
    });

    if (std::chrono::steady_clock::now() - (*longest)->lastHeard() < options.silence)
        return false;

    log (LogDetail::events, "a silent session was ended: too many sessions");
    (*longest)->end (HostSession::Ending::close);
    sessions.erase (longest);
    return true;
}

void Receiver::listen()
{
    const SessionContext shared { model, faults, recorder, messageLimit,
                                  [this] (LogDetail detail, const std::string& text) { log (detail, text); } };

    while (auto socket = listener.accept (stop))
    {
        const std::scoped_lock guard (sessionsLock);

        if (! makeRoom())
        {
            log (LogDetail::events, "a connection was closed: too many sessions");
            continue;
        }

        // Before the session is counted: a test that waits for it may set faults that are not meant for it.
        auto connectFaults = faults.next ({ "connect" });
        sessions.push_back (std::make_unique<HostSession> (recorder.sessionBegan(), std::move (*socket), shared,
                                                           std::move (connectFaults)));
    }
}

std::vector<ReceivedMessage> Receiver::messages (std::string_view type) const
{
    auto selected = recorder.messages();
    std::erase_if (selected, [&] (const auto& message) { return message.type != type; });
    return selected;
}

bool Receiver::waitFor (const std::function<bool()>& condition, std::chrono::milliseconds timeout) const
{
    const auto end = std::chrono::steady_clock::now() + timeout;

    for (;;)
    {
        const auto seen = recorder.changes();

        if (condition())
            return true;

        const auto now = std::chrono::steady_clock::now();

        if (now >= end)
            return false;

        recorder.waitForChange (seen, std::min (end, now + kCheckInterval));
    }
}

void Receiver::setFaults (std::vector<Fault> script) { faults.set (std::move (script)); }

void Receiver::addFault (Fault fault) { faults.add (std::move (fault)); }

void Receiver::broadcast (const google::protobuf::MessageLite& message)
{
    const std::scoped_lock guard (sessionsLock);

    for (const auto& session : sessions)
        session->send (message);
}

void Receiver::endSessions (HostSession::Ending ending)
{
    const std::scoped_lock guard (sessionsLock);

    for (const auto& session : sessions)
        session->end (ending);
}

}
