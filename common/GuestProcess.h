// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    What a module has to know of the process that it is a guest in: which one it is, since a process may fork, whether it is
    ending, and that its threads may be cancelled. Any thread. docs/unloading.md says where each of these matters.
*/

#include <chrono>
#include <memory>

namespace veltra {

/** The number of the process. What was made in a process is not shut down by one that was forked from it. */
int processId() noexcept;

/** Says that the process ends or the module is unloaded, for good: waits of the module end early from now on. */
void setEnding() noexcept;
bool isEnding() noexcept;

/** Keeps the shared library of a function in the process for good, also when all that use it are unloaded: for a library with
    threads that may still run its code then. Nothing where it is linked into the module itself. */
void keepLibraryOf (const void* function) noexcept;

/** Sleeps until a steady clock has advanced by this much, whatever signals arrive.
    @returns  false when setEnding has ended it early */
bool pause (std::chrono::milliseconds time);

/** Where a thread that the host has cancelled ends, by an exception of the C++ library's own; at a moment when nothing is left
    half done. Nothing where threads cannot be cancelled. */
void cancellationPoint();

/** While one lives, pthread_cancel does not act on its thread; the request stays. For code that must not be left in the middle
    and does not wait for long. Nothing where threads cannot be cancelled. */
class NoCancellation
{
public:
    NoCancellation() noexcept;
    ~NoCancellation();

    NoCancellation (const NoCancellation&) = delete;
    NoCancellation& operator= (const NoCancellation&) = delete;

private:
    int stateBefore = 0;
};

/** Holds the host's signals back from the calling thread for as long as it lives: for waits of some seconds in libraries that
    begin their time anew after each. Those of faults in a program come through. Nothing where there are none. */
class HeldSignals
{
public:
    HeldSignals();
    ~HeldSignals();

    HeldSignals (const HeldSignals&) = delete;
    HeldSignals& operator= (const HeldSignals&) = delete;

    /** For a thread of the module, from its begin to its end: the host's signals are for the host's threads. */
    static void forThisThread() noexcept;

private:
    struct State;
    std::unique_ptr<State> state;
};

}
