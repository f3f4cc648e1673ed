#pragma once

#include <exception>
#include <new>
#include <string>
#include <utility>

namespace veltra::plugin {

/** Runs the body of an operation that the host called: whatever it throws ends here, since no exception may
    cross the module's boundary.

    @param onFailure  what the operation returns when its body threw
    @param words      receives words for the failure; may be null
*/
template <typename Result, typename Body>
Result guarded (Result onFailure, Body&& body, std::string* words = nullptr) noexcept
{
    try
    {
        return std::forward<Body> (body)();
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

/** The same for an operation that returns nothing. */
template <typename Body>
void guarded (Body&& body) noexcept
{
    try
    {
        std::forward<Body> (body)();
    }
    catch (...)
    {
    }
}

}
