// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace upnp {

/** Bounds of one fetch. Whoever answers is a stranger on the network, and a fetch has to end well before a thread pool
    loses its patience with the job that makes it. */
struct HttpLimits
{
    /** Of each connection, looking up the name of its host included. */
    std::chrono::milliseconds connectTime { 1000 };

    /** Of everything together, redirects included. */
    std::chrono::milliseconds totalTime { 3000 };

    int redirects = 5;
    std::size_t headerSize = 64 * 1024;
    std::size_t bodySize = 1024 * 1024;
};

struct HttpReply
{
    int status = 0;

    /** As it came, of replies with status 200 only; what had arrived when the time ran out or the peer went away. */
    std::string body;

    /** The body was longer than allowed and stands here in part. */
    bool bodyTooLong = false;
};

/** Fetches a document by a GET without extra headers. Only http and https, redirects included; no proxy, whatever the
    environment says. A redirect beyond the limit, to itself or without a target is a reply with its 3xx status.

    Returns within the limits even when a name server or a peer hangs, and soon after shouldStop says true. Any thread;
    several at once.

    @param shouldStop  asked about every 50 ms, on the calling thread
    @returns  nothing when no peer could be reached or none sent a complete header
*/
std::optional<HttpReply> httpGet (const std::string& url, const std::function<bool()>& shouldStop,
                                  const HttpLimits& limits = {});

}
