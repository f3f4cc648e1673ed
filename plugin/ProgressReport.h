// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "common/Contain.h"
#include "veltratune_io/Callbacks.h"

namespace veltra::plugin {

/** Reports a download to the host's callback, where there is one. An exception out of it goes no further. */
class ProgressReport
{
public:
    explicit ProgressReport (veltratune_io::ProgressCallback* callbackToUse) noexcept : callback (callbackToUse) {}

    template <std::uint32_t size>
    void say (const char (&text)[size]) noexcept
    {
        if (callback != nullptr)
            guarded ([&] { callback->OnProgressText (text, size - 1); });
    }

    /** @returns  false when the host asks to cancel; also when its callback threw */
    bool report (float fraction) noexcept
    {
        return callback == nullptr || guarded (false, [&] { return callback->OnProgress (fraction); });
    }

private:
    veltratune_io::ProgressCallback* const callback;
};

}
