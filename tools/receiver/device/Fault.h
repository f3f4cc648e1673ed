// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace veltra::receiver {

/** One kind of misbehaviour with certain messages.

    In code:

        Fault { .action = Fault::Action::refuse, .type = "FilterDataChunk", .first = 3, .text = "no room" }
*/
struct Fault
{
    enum class Action
    {
        refuse,        ///< not carried out; answered by an Acknowledge that is not ok, with `text` unless empty
        lose,          ///< not carried out and not answered
        loseReply,     ///< carried out, not answered
        delay,         ///< carried out; the reply is sent after `pause`, and messages that arrive meanwhile wait
        wrongChecksum, ///< the reply's envelope carries a wrong checksum
        wrongLength,   ///< the reply's envelope announces `bytes` bytes more than it has
        noise,         ///< `bytes` bytes of noise before the reply's envelope
        pieces,        ///< the reply is sent in pieces of `bytes` bytes, with `pause` between them
        close,         ///< the connection is closed in an orderly way after `bytes` bytes of the reply
        reset,         ///< the connection is reset after `bytes` bytes of the reply
        answer,        ///< carried out, but answered by the message `text` with the body `body`
        duplicate,     ///< the reply is sent twice, or `bytes` times
        truncate,      ///< only `bytes` bytes of the reply's body are sent, in an envelope of that length
        limit          ///< from this message on, envelopes above `bytes` bytes are refused; 0 lifts the limit
    };

    static constexpr std::uint32_t kForEver = UINT32_MAX;

    Action action = Action::refuse;

    /** What it applies to: the name of a host's message without its package ("FilterDataChunk"); "GetUnit", "GetVolume"
        and so on for a Request of that kind; "*" for every message of a host; "AudioData" for the microphone's packets,
        which then are the reply above; "connect" for a new connection, with delay, noise, close and reset only. */
    std::string type {};

    std::uint32_t first = 1; ///< the first such message that it applies to, counted from 1 since the fault was set
    std::uint32_t last = 0;  ///< the last one; 0 means `first`, kForEver no end

    std::string text {};
    std::string body {};
    std::uint32_t bytes = 0;
    std::chrono::milliseconds pause { 0 };
};

/** Counts messages and finds the faults that apply to each. Any thread. */
class FaultInjector
{
public:
    void set (std::vector<Fault> faults);
    void add (Fault fault);

    /** Counts one message for every fault that names it.
        @param names  all types that it belongs to
        @returns      the faults that apply, in the order in which they were added */
    std::vector<Fault> next (const std::vector<std::string_view>& names);

private:
    struct Rule
    {
        Fault fault;
        std::uint32_t seen = 0;
    };

    std::mutex lock;
    std::vector<Rule> rules;
};

}
