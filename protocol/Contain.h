#pragma once

#include <exception>

#include "common/Log.h"

namespace veltra::ipc {

/** Runs something on a thread of ours: an exception, the application's or for want of memory, ends neither the thread
    nor the process, only what was being done, and leaves a line in the log. */
template <class Action>
void contain (const char* what, Action&& action) noexcept
{
    try
    {
        action();
    }
    catch (const std::exception& error)
    {
        VELTRA_LOG (ERROR, "VeltraIO: " << what << " failed: " << error.what());
    }
    catch (...)
    {
        VELTRA_LOG (ERROR, "VeltraIO: " << what << " failed");
    }
}

}
