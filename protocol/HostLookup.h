// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace veltra {

/** Looks up the addresses of a host name, giving up after a time.

    Neither getaddrinfo nor the look-ups of JUCE and libcurl can be cancelled: all of them wait for name servers
    for tens of seconds, and anybody who can send us a name can make them do so. On glibc this one leaves a look-up that

    takes too long to a helper thread of the C library, which runs no code of this module and may outlive it; while 16
    of those hang, no further one begins. Any thread, several at once.

    @param shouldStop  asked about every 50 ms
    @returns  addresses in text form, best first; none on failure. A number is its own answer. Where the platform cannot
              bound the search (anything but glibc) the name itself is returned, and its user's library looks it up.
*/
std::vector<std::string> lookUpHost (const std::string& name, std::chrono::steady_clock::time_point deadline,
                                     const std::function<bool()>& shouldStop);

}
