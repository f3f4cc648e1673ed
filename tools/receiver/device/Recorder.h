// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltra::receiver {

/** A message that came from a host. */
struct ReceivedMessage
{
    std::uint32_t session = 0;          ///< number of the session, from 1
    std::string type;                   ///< without the package ("LoadFilter"); "0x" and digits for an unknown one
    std::string body;                   ///< its protobuf serialisation
    bool wasCarriedOut = false;         ///< neither refused nor lost
    std::optional<std::string> refusal; ///< the text of the refusal
};

/** Records what the sessions of a receiver receive, and wakes threads that wait for it. Any thread. */
class Recorder
{
public:
    /** @param capacity  bytes to keep, of messages and of raw bytes each; later ones are counted only */
    explicit Recorder (std::size_t capacityBytes) : capacity (capacityBytes) {}

    /** @returns the session's number */
    std::uint32_t sessionBegan();
    void sessionEnded();
    void addBytes (std::uint32_t session, std::string_view bytes);
    void addMessage (ReceivedMessage);

    std::uint32_t sessionCount() const;
    std::uint32_t openSessions() const;
    std::size_t messageCount (std::string_view type) const;
    std::vector<ReceivedMessage> messages() const;
    std::string bytes (std::uint32_t session) const;

    /** Number of events recorded so far. */
    std::uint64_t changes() const;

    /** Waits until more than `seen` events are recorded, or until a time. */
    void waitForChange (std::uint64_t seen, std::chrono::steady_clock::time_point until) const;

private:
    void noteChange();

    const std::size_t capacity;
    mutable std::mutex lock; // everything below
    mutable std::condition_variable changed;
    std::uint64_t changeCount = 0;
    std::uint32_t begunSessions = 0, openSessionCount = 0;
    std::size_t messageBytes = 0, rawBytes = 0;
    std::map<std::string, std::size_t, std::less<>> counts;
    std::vector<ReceivedMessage> recorded;
    std::map<std::uint32_t, std::string> rawBySession;
};

}
