// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "tools/platform/Process.h"

namespace veltra {

/** Makes Ctrl-C (SIGINT), SIGTERM and SIGHUP end the program without leaving anything behind.

    A thread of its own takes these signals, so that no other thread, the module's among them, is interrupted in a system
    call. Without a CancelScope a signal removes all Transient files and then ends the program as it would have done by
    default. Writing to a pipe without a reader is an error and not a signal.

    Make one object, in main, before any other thread. On Windows Ctrl-C ends the program by default.
*/
class SignalWatch
{
public:
    SignalWatch();

private:
    platform::SignalThread thread;
};

/** While an object of this class exists, the first signal only sets a flag, which the work in hand looks at and
    ends in order; a second signal ends the program after all. */
class CancelScope
{
public:
    CancelScope() noexcept;
    ~CancelScope();

    CancelScope (const CancelScope&) = delete;
    CancelScope& operator= (const CancelScope&) = delete;

    /** Whether a signal has come since the object was made. Any thread. */
    bool requested() const noexcept;
};

/** Inside a CancelScope: while an object of this class exists, a signal ends the program all the same. For waits that
    nothing else can end. */
class UncancellableScope
{
public:
    UncancellableScope() noexcept;
    ~UncancellableScope();

    UncancellableScope (const UncancellableScope&) = delete;
    UncancellableScope& operator= (const UncancellableScope&) = delete;

private:
    const int stateBefore;
};

}
