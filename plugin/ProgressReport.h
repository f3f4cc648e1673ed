// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "common/GuestProcess.h"
#include "plugin/HostCall.h"
#include "veltratune_io/Callbacks.h"

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

}
