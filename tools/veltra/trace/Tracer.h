// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "tools/capture/CaptureWriter.h"
#include "tools/output/Json.h"
#include "tools/veltra/check/Wire.h"

namespace veltra::trace {

using capture::CaptureWriter;
using capture::Side;

/** Follows the conversations of hosts with a receiver: a line for each envelope, and a recording. Any thread. */
class Tracer
{
public:
    /** What happened, in a form for scripts (docs/json.md) and as a line for people. */
    using Print = std::function<void (std::string_view event, const Json& object, const std::string& line)>;

    /** @param print   called on the threads of all that is told, one call at a time
        @param writer  may be null: nothing is recorded; otherwise borrowed */
    Tracer (Print print, CaptureWriter* writer);
    ~Tracer();

    void opened (unsigned connection);

    /** Bytes that one side has sent, at the time of this call. */
    void passed (unsigned connection, Side sender, std::string_view bytes);
    void closed (unsigned connection, Side first);

    /** A line of another log, shown at its time and recorded with the next packet. */
    void logged (const std::string& line);

private:
    struct Connection;
    class Stream;

    /** A question that has no answer yet. */
    struct Question
    {
        std::string expected; ///< name of the answer
        check::Clock::time_point time;
    };

    void envelope (Connection& connection, Side sender, const check::Incoming& incoming, bool isKnown);
    void tell (std::string_view event, Json object, const std::string& text);

    const Print print;
    CaptureWriter* const writer;
    std::mutex lock;
    std::map<unsigned, std::unique_ptr<Connection>> connections;
    std::string comment; ///< for the next packet
    bool hasToldThatFull = false;
};

}
