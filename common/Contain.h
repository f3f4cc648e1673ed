// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <exception>
#include <new>
#include <string>
#include <utility>

#if defined(__GLIBCXX__)
#include <cxxabi.h>
#endif

#include "common/Log.h"

namespace veltra {

/** How the C++ library unwinds a thread that the host cancels or ends. Whoever catches everything has to pass it on, or the
    library ends the process. */
#if defined(__GLIBCXX__)
using ThreadEnd = abi::__forced_unwind;
#else
struct ThreadEnd
{
};
#endif

/** Runs the body of an operation that the host called: whatever it throws ends here, since no exception may
    cross the module's boundary. The end of a cancelled thread passes through.

    @param onFailure  what the operation returns when its body threw
    @param words      receives a text about the failure; may be null
*/
template <typename Result, typename Body>
Result guarded (Result onFailure, std::string* words, Body&& body)
{
    try
    {
        return std::forward<Body> (body)();
    }
    catch (const ThreadEnd&)
    {
        throw;
    }
    catch (const std::bad_alloc&)
    {
        if (words != nullptr)
            *words = "Out of memory"; // short enough for a string's own storage
    }
    catch (const std::exception& e)
    {
        try
        {
            if (words != nullptr)
                *words = std::string ("Unexpected failure: ") + e.what();
        }
        catch (...)
        {
        }
    }
    catch (...)
    {
        if (words != nullptr)
            *words = "Unknown error";
    }

    return onFailure;
}

/** The same without a text. */
template <typename Result, typename Body>
Result guarded (Result onFailure, Body&& body)
{
    return guarded (onFailure, nullptr, std::forward<Body> (body));
}

/** The same for an operation that returns nothing. */
template <typename Body>
void guarded (Body&& body)
{
    try
    {
        std::forward<Body> (body)();
    }
    catch (const ThreadEnd&)
    {
        throw;
    }
    catch (...)
    {
    }
}

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
