// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace upnp {

/** Bounds of one fetch. Anything on the network may answer, and a fetch has to end well before the thread pool stops
    waiting for the job that makes it. */
struct HttpLimits
{
    /** Of each connection, including the look-up of its host's name. */
    std::chrono::milliseconds connectTime { 1000 };

    /** From each request to the end of its reply's header. */
    std::chrono::milliseconds headerTime { 1000 };

    /** Of the whole fetch, redirects included. */
    std::chrono::milliseconds totalTime { 3000 };

    int redirects = 5;
    std::size_t headerSize = 64 * 1024;
    std::size_t bodySize = 1024 * 1024;

    /** Whether a server of this machine is asked, whatever the host is called and wherever a redirect leads. */
    bool mayUseLoopback = true;
};

struct HttpReply
{
    int status = 0;

    /** Unchanged, and only for status 200; what had arrived when the time ran out or the connection ended. */
    std::string body;

    /** The body was longer than allowed, and only its beginning was kept. */
    bool bodyTooLong = false;
};

/** Fetches a document by a GET without extra headers. Only http and https, also after redirects. Proxies that the
    environment names are not used. A redirect beyond the limit, to itself or without a target is a reply with its 3xx
    status.

    Returns within the limits even when a name server or a peer does not answer, and soon after shouldStop returns true.
    Safe to call from several threads at once.

    @param shouldStop  called about every 50 ms, on the calling thread
    @returns  nothing when no server could be reached or none sent a complete header
*/
std::optional<HttpReply> httpGet (const std::string& url, const std::function<bool()>& shouldStop,
                                  const HttpLimits& limits = {});

}
