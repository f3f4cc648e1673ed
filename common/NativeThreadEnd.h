// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <cstdint>

namespace veltra {

/** Waits until a juce::Thread is really gone. Each kind of operating system has a source of its own for this.

    JUCE detaches its native threads: after waitForThreadToExit the thread may still be on its way out through
    the last instructions of this module, and a module that is unmapped under it crashes the host. Call started()
    as the first act of run(), and waitUntilGone() after waitForThreadToExit() has returned true.
*/
class NativeThreadEnd
{
public:
    NativeThreadEnd() = default;
    ~NativeThreadEnd();

    NativeThreadEnd (const NativeThreadEnd&) = delete;
    NativeThreadEnd& operator= (const NativeThreadEnd&) = delete;

    void started() noexcept;

    /** At most a second, in case the number already belongs to another thread. */
    void waitUntilGone() noexcept;

    /** On Windows no thread can end completely while a library is being unloaded. From this call on the waits only last
        as long as a thread needs to leave the library's code. Nothing elsewhere. */
    static void libraryIsBeingUnloaded() noexcept;

private:
    std::atomic<std::uintptr_t> thread { 0 }; // the system's number or handle; 0 for none
};

}
