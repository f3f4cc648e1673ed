// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/HostCall.h"

#include <atomic>
#include <thread>

#include "common/GuestProcess.h"

namespace veltra::plugin {

namespace {

std::atomic<int> callsIntoModule { 0 };
std::atomic<int> callsIntoHost { 0 };
thread_local int callsOfThread[2] {};

std::atomic<int>& countOf (HostCall::Direction direction) noexcept
{
    return direction == HostCall::Direction::intoModule ? callsIntoModule : callsIntoHost;
}

int ownCalls (HostCall::Direction direction) noexcept { return callsOfThread[static_cast<int> (direction)]; }

}

HostCall::HostCall (Direction directionToCount) noexcept : direction (directionToCount)
{
    // Counted before it looks, so that endAll either sees it or is seen by it.
    ++countOf (direction);
    ++callsOfThread[static_cast<int> (direction)];
    isAllowed = ! isEnding();
}

HostCall::~HostCall()
{
    --callsOfThread[static_cast<int> (direction)];
    --countOf (direction);
}

bool HostCall::isInsideOne() noexcept { return ownCalls (Direction::intoModule) + ownCalls (Direction::intoHost) > 0; }

bool HostCall::endAll (std::chrono::milliseconds longest)
{
    setEnding();
    const int own = ownCalls (Direction::intoModule) + ownCalls (Direction::intoHost);
    const auto areOthers = [own] { return callsIntoModule + callsIntoHost > own; };
    const auto deadline = std::chrono::steady_clock::now() + longest;

    while (areOthers() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for (std::chrono::milliseconds (1));

    return own == 0 && ! areOthers();
}

}
