#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace upnp {

/** Looks up the addresses of a host name, giving up after a time.

    Neither getaddrinfo nor libcurl's own look-up can be told to give up: both wait for name servers for tens of
    seconds, and anybody who can send us a name can make them do so. On glibc this one leaves a look-up that takes too
    long to a helper thread of the C library, which runs no code of this module and may outlive it. Elsewhere it
    returns no address and so leaves the look-up to the caller's library.

    @param shouldStop  asked about every 50 ms
    @returns addresses in text form, best first; none on failure
*/
std::vector<std::string> lookUpHost (const std::string& name, std::chrono::steady_clock::time_point deadline,
                                     const std::function<bool()>& shouldStop);

}
