// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/GuestProcess.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace veltra {

namespace {

std::atomic<bool> ending { false };

}

void setEnding() noexcept { ending = true; }
bool isEnding() noexcept { return ending; }

bool pause (std::chrono::milliseconds time)
{
    using Clock = std::chrono::steady_clock;
    constexpr Clock::duration slice = std::chrono::milliseconds (20);
    const auto deadline = Clock::now() + time;

    for (auto now = Clock::now(); now < deadline; now = Clock::now())
    {
        if (isEnding())
            return false;

        std::this_thread::sleep_for (std::min (slice, deadline - now));
    }

    return true;
}

}
