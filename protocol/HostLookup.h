// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace veltra {

/** Looks up the addresses of a host name, giving up after a time.

    Name servers may keep a caller waiting for tens of seconds, and anybody who can send us a name can make us ask them. A
    look-up that takes too long is left to the system (glibc and Windows answer on threads of their own, which run no code
    of this module and may outlive it; elsewhere the module then stays in memory). While 16 of those hang, no further one
    begins. Any thread, several at once.

    @param shouldStop  asked about every 50 ms
    @returns  addresses in text form, best first; none on failure. A number is its own answer
*/
std::vector<std::string> lookUpHost (const std::string& name, std::chrono::steady_clock::time_point deadline,
                                     const std::function<bool()>& shouldStop);

}
