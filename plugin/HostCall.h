// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "common/Contain.h"

/** @file
    The host's calls into the module, and the module's into the host, while they run. A process may end while one of its threads
    is in an operation; what that operation uses has to stay until it has left. Any thread. The counts are plain static
    words: they are still there when everything else of the module has been destroyed.
*/

namespace veltra::plugin {

/** Counts one call for as long as it lives. */
class HostCall
{
public:
    enum class Direction
    {
        intoModule,
        intoHost
    };

    explicit HostCall (Direction directionToCount) noexcept;
    ~HostCall();

    HostCall (const HostCall&) = delete;
    HostCall& operator= (const HostCall&) = delete;

    /** False when the module has ended meanwhile: the call must not go on. */
    explicit operator bool() const noexcept { return isAllowed; }

    /** Whether the calling thread is in an operation of the module or in a callback. */
    static bool isInsideOne() noexcept;

    /** Lets no further call begin and waits for those that run; see setEnding. Those of the calling thread itself cannot end.
        @returns  whether none is left */
    static bool endAll (std::chrono::milliseconds longest);

private:
    const Direction direction;
    bool isAllowed = false;
};

/** Runs the body of an operation of the boundary. As guarded, and counted. */
template <typename Result, typename Body>
Result operation (Result onFailure, std::string* words, Body&& body)
{
    const HostCall call (HostCall::Direction::intoModule);
    return call ? guarded (onFailure, words, std::forward<Body> (body)) : onFailure;
}

template <typename Result, typename Body>
Result operation (Result onFailure, Body&& body)
{
    return operation (onFailure, nullptr, std::forward<Body> (body));
}

template <typename Body>
void operation (Body&& body)
{
    if (const HostCall call (HostCall::Direction::intoModule); call)
        guarded (std::forward<Body> (body));
}

}
