// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace veltra {

/** A source of milliseconds with an arbitrary origin; what measures time takes one, so that its tests need not
    sleep. Called on the thread that measures. */
using MillisecondClock = std::function<std::int64_t()>;

/** The clock that everybody uses by default: it never jumps when somebody sets the time of day. */
inline std::int64_t steadyMilliseconds()
{
    using namespace std::chrono;
    return duration_cast<milliseconds> (steady_clock::now().time_since_epoch()).count();
}

}
