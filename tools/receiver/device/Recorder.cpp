// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/Recorder.h"

#include <utility>

namespace veltra::receiver {

void Recorder::noteChange()
{
    ++changes_;
    changed.notify_all();
}

std::uint32_t Recorder::sessionBegan()
{
    const std::scoped_lock guard (lock);
    ++open_;
    noteChange();
    return ++sessions_;
}

void Recorder::sessionEnded()
{
    const std::scoped_lock guard (lock);
    --open_;
    noteChange();
}

void Recorder::addBytes (std::uint32_t session, std::string_view bytes)
{
    const std::scoped_lock guard (lock);

    if (rawBytes_ + bytes.size() <= capacity_)
    {
        rawBytes_ += bytes.size();
        bytes_[session].append (bytes);
    }

    noteChange();
}

void Recorder::addMessage (ReceivedMessage message)
{
    const std::scoped_lock guard (lock);

    // Unknown types are a peer's invention, and there may be any number of them.
    if (! message.type.starts_with ("0x"))
        ++counts_[message.type];

    const auto size = sizeof (message) + message.type.size() + message.body.size();

    if (messageBytes_ + size <= capacity_)
    {
        messageBytes_ += size;
        messages_.push_back (std::move (message));
    }

    noteChange();
}

std::uint32_t Recorder::sessionCount() const
{
    const std::scoped_lock guard (lock);
    return sessions_;
}

std::uint32_t Recorder::openSessions() const
{
    const std::scoped_lock guard (lock);
    return open_;
}

std::size_t Recorder::messageCount (std::string_view type) const
{
    const std::scoped_lock guard (lock);
    const auto found = counts_.find (type);
    return found == counts_.end() ? 0 : found->second;
}

std::vector<ReceivedMessage> Recorder::messages() const
{
    const std::scoped_lock guard (lock);
    return messages_;
}

std::string Recorder::bytes (std::uint32_t session) const
{
    const std::scoped_lock guard (lock);
    const auto found = bytes_.find (session);
    return found == bytes_.end() ? std::string() : found->second;
}

std::uint64_t Recorder::changes() const
{
    const std::scoped_lock guard (lock);
    return changes_;
}

void Recorder::waitForChange (std::uint64_t seen, std::chrono::steady_clock::time_point until) const
{
    std::unique_lock guard (lock);
    changed.wait_until (guard, until, [&] { return changes_ > seen; });
}

}
