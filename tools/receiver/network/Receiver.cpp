// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Receiver.h"

#include <algorithm>
#include <utility>

#include "tools/receiver/device/SlotReport.h"

namespace veltra::receiver {

namespace {

constexpr std::uint32_t kDefaultMessageLimit = 460;

/** How often a condition is looked at although nothing was heard: the state of a stimulus changes by itself. */
constexpr std::chrono::milliseconds kLongestLook { 20 };

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
            log (LogDetail::events, error);
    }

    if (options.onDownload)
        options.onDownload (device, slotIndex, slot);
}

void Receiver::listen()
{
    const SessionContext shared { model, faults, recorder, messageLimit,
                                  [this] (LogDetail detail, const std::string& text) { log (detail, text); } };

    while (auto socket = listener.accept (stop))
    {
        const std::scoped_lock guard (sessionsLock);
        std::erase_if (sessions, [] (const auto& session) { return session->isOver(); });

        if (sessions.size() >= kMaxSessions)
        {
            log (LogDetail::events, "a connection too many was closed");
            continue;
        }

        // Faults first: whoever sees the session may set new ones, which are not for it.
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

        recorder.waitForChange (seen, std::min (end, now + kLongestLook));
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
