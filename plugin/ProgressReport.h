// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>

#include "common/GuestProcess.h"
#include "plugin/HostCall.h"
#include "veltratune_io/Callbacks.h"
#include "veltratune_io/Result.h"

namespace veltra::plugin {

/** Reports a download to the host's callback, where there is one. An exception out of it goes no further. */
class ProgressReport
{
public:
    explicit ProgressReport (veltratune_io::ProgressCallback* callbackToUse) noexcept : callback (callbackToUse) {}

    template <std::uint32_t size>
    void say (const char (&text)[size])
    {
        if (callback == nullptr)
            return;

        if (const HostCall call (HostCall::Direction::intoHost); call)
            guarded ([&] { callback->OnProgressText (text, size - 1); });
    }

    /** @returns  false when the host asks to cancel; also when its callback threw, and when the process ends */
    bool report (float fraction)
    {
        if (callback == nullptr)
            return ! isEnding();

        const HostCall call (HostCall::Direction::intoHost);
        return call && guarded (false, [&] { return callback->OnProgress (fraction); });
    }

private:
    veltratune_io::ProgressCallback* const callback;
};

/** Asks the host during a long conversion, once a second, whether it is still wanted. */
class CancelWatch
{
public:
    explicit CancelWatch (ProgressReport& progressToUse) : progress (progressToUse) {}

    /** @throws  veltratune_io::kResultOk, the result of a cancelled download, when the host asks to cancel */
    void check()
    {
        const auto now = Clock::now();

        if (now < next)
            return;

        next = now + std::chrono::seconds (1);

        if (! progress.report (0.0f))
            throw veltratune_io::kResultOk;
    }

private:
    using Clock = std::chrono::steady_clock;

    ProgressReport& progress;
    Clock::time_point next = Clock::now() + std::chrono::seconds (1);
};

}
