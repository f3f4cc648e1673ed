// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/Recorder.h"

#include <utility>

namespace veltra::receiver {

void Recorder::noteChange()
{
    ++changeCount;
    changed.notify_all();
}

std::uint32_t Recorder::sessionBegan()
{
    const std::scoped_lock guard (lock);
    ++openSessionCount;
    noteChange();
    return ++begunSessions;
}

void Recorder::sessionEnded()
{
    const std::scoped_lock guard (lock);
    --openSessionCount;
    noteChange();
}

void Recorder::addBytes (std::uint32_t session, std::string_view bytes)
{
    const std::scoped_lock guard (lock);

    if (rawBytes + bytes.size() <= capacity)
    {
        rawBytes += bytes.size();
        rawBySession[session].append (bytes);
    }

    noteChange();
}

void Recorder::addMessage (ReceivedMessage message)
{
    const std::scoped_lock guard (lock);

    // A peer can invent any number of unknown types.
    if (! message.type.starts_with ("0x"))
        ++counts[message.type];

    const auto size = sizeof (message) + message.type.size() + message.body.size();

    if (messageBytes + size <= capacity)
    {
        messageBytes += size;
        recorded.push_back (std::move (message));
    }

    noteChange();
}

std::uint32_t Recorder::sessionCount() const
{
    const std::scoped_lock guard (lock);
    return begunSessions;
}

std::uint32_t Recorder::openSessions() const
{
    const std::scoped_lock guard (lock);
    return openSessionCount;
}

std::size_t Recorder::messageCount (std::string_view type) const
{
    const std::scoped_lock guard (lock);
    const auto found = counts.find (type);
    return found == counts.end() ? 0 : found->second;
}

std::vector<ReceivedMessage> Recorder::messages() const
{
    const std::scoped_lock guard (lock);
    return recorded;
}

std::string Recorder::bytes (std::uint32_t session) const
{
    const std::scoped_lock guard (lock);
    const auto found = rawBySession.find (session);
    return found == rawBySession.end() ? std::string() : found->second;
}

std::uint64_t Recorder::changes() const
{
    const std::scoped_lock guard (lock);
    return changeCount;
}

void Recorder::waitForChange (std::uint64_t seen, std::chrono::steady_clock::time_point until) const
{
    std::unique_lock guard (lock);
    changed.wait_until (guard, until, [&] { return changeCount > seen; });
}

}
