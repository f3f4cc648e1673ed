// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltra::receiver {

/** One thing that goes wrong with certain messages.

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
        delay,         ///< carried out; the reply leaves after `pause`, and what comes meanwhile waits
        wrongChecksum, ///< the reply's envelope carries a wrong checksum
        wrongLength,   ///< the reply's envelope promises `bytes` bytes more than it has
        noise,         ///< `bytes` bytes of noise go before the reply's envelope
        pieces,        ///< the reply leaves in pieces of `bytes` bytes, with `pause` between them
        close,         ///< the connection is closed in an orderly way after `bytes` bytes of the reply
        reset,         ///< the connection is reset after `bytes` bytes of the reply
        answer,        ///< carried out, but answered by the message `text` with the body `body`
        duplicate,     ///< the reply is sent twice, or `bytes` times
        truncate,      ///< only `bytes` bytes of the reply's body are sent, in an envelope of that length
        limit          ///< from this message on, envelopes above `bytes` bytes are refused; 0 lifts the limit
    };

    static constexpr std::uint32_t kForEver = UINT32_MAX;

    Action action = Action::refuse;

    /** What it applies to: the name of a message of the host's without its package ("FilterDataChunk"); "GetUnit",
        "GetVolume" and so on for a Request of that kind; "*" for every message of the host's; "AudioData" for
        the packets that the receiver sends by itself, where the packet is what `reply` says above; "connect" for
        a new connection, where delay, noise, close and reset apply. */
    std::string type {};

    std::uint32_t first = 1; ///< the first such message that it applies to, counted from 1 since the fault was set
    std::uint32_t last = 0;  ///< the last one; 0 stands for `first`, kForEver for no end

    std::string text {};
    std::string body {};
    std::uint32_t bytes = 0;
    std::chrono::milliseconds pause { 0 };
};

/** Reads faults from text, one a line; empty lines and what follows a "#" are passed over.

        refuse FilterDataChunk 3 'no room'   the third chunk is refused
        lose GetProtocolInfo 1               no answer to the first such request
        delay LoadFilter * 1500              every LoadFilter is answered after 1500 ms
        pieces GetUnit 1 7 20                7 bytes at a time, 20 ms apart
        close FilterDataChunk 5+             from the fifth chunk on, the connection is closed instead
        answer GetVolume 2-3 FilteringState 'deviceIndex: 0 isFiltering: true'

    faultHelp() lists them all.

    @param error  receives the line and what is wrong with it
    @returns      nothing after an error
*/
std::optional<std::vector<Fault>> parseFaults (std::string_view text, std::string& error);

/** The word for an action in a line of text ("lose-reply"). */
std::string_view actionName (Fault::Action);

/** The faults that parseFaults knows with their arguments, one a line, for a program's help. */
std::string faultHelp();

/** Counts messages and tells which faults apply to each. Any thread. */
class FaultInjector
{
public:
    void set (std::vector<Fault> faults);
    void add (Fault fault);

    /** Counts one message for every fault that names it.
        @param names  the names that it goes by
        @returns      what applies to it, in the order in which the faults were added */
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
