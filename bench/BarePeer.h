// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

/** @file
    The least that answers and asks over a stream socket: plain blocking calls, no registry, no threads besides
    the peer's own. What the exchanges of the module are measured against.
*/

namespace veltra::bench {

/** Answers every envelope with the same bytes. Serves one connection after another on a loopback port. */
class BarePeer
{
public:
    /** @param processor  that its thread stays on, see OnProcessor; negative for any */
    explicit BarePeer (std::string answer, int processor = -1);
    ~BarePeer();

    BarePeer (const BarePeer&) = delete;
    BarePeer& operator= (const BarePeer&) = delete;

    int port() const noexcept { return boundPort; }

private:
    void serve() const;

    const std::string answer;
    const int processor;
    int listener = -1;
    int boundPort = 0;
    std::thread thread;
};

/** A blocking connection to a BarePeer. */
class BareClient
{
public:
    explicit BareClient (int port);
    ~BareClient();

    BareClient (const BareClient&) = delete;
    BareClient& operator= (const BareClient&) = delete;

    /** Sends one envelope and waits for an answer of answerSize bytes. @returns false when the peer has gone */
    bool exchange (const std::string& envelope, std::size_t answerSize);

private:
    int handle = -1;
    std::array<char, 65536> answer {};
};

}
