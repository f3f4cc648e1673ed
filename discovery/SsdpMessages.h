// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

/** @file
    The two messages of an SSDP search, as text: the request that goes to the multicast group, and the answers that
    devices send back to the socket that it came from.
*/

namespace upnp {

inline constexpr const char* multicastGroup = "239.255.255.250";
inline constexpr int ssdpPort = 1900;

/** The request, in one datagram. Receivers rely on the order of its lines and on the missing empty line at its end.
    @param maxWait_s  the longest that a device may wait before it answers */
std::string searchRequest (const juce::String& searchTarget, int maxWait_s);

/** Assembles answers from the datagrams that a search receives.

    An answer is the text from "HTTP/1.1" to the next empty line, wherever the boundaries of datagrams lie: what
    stands in front is thrown away, what is not complete waits for the next datagram. The status is not looked at.
    Not thread-safe; used by the one thread that reads the socket.
*/
class AnswerReader
{
public:
    /** Takes USN and LOCATION of an answer. */
    using Callback = std::function<void (const juce::String& usn, const juce::String& location)>;

    /** Bytes of incomplete answers; beyond that the oldest are dropped. */
    static constexpr std::size_t maximumPending = 64 * 1024;

    /** Answers with a longer USN or LOCATION are ignored: they would have to be remembered for a whole scan. */
    static constexpr std::size_t maximumValue = 2048;

    /** @param target    what the header ST of an answer must equal exactly
        @param callback  called by take for each such answer with a USN and a LOCATION; an empty one is logged */
    AnswerReader (const juce::String& target, Callback callback);

    /** Appends one datagram and passes on the answers that it completes, in their order. */
    void take (std::string_view datagram);

    /** Bytes that wait for the rest of their answer. */
    std::size_t pendingSize() const noexcept { return pending.size(); }

private:
    void takeAnswer (std::string_view answer) const;

    std::string searchTarget;
    Callback found;
    std::string pending;
};

}
