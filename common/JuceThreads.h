#pragma once

/** @file
    What has to be known to run juce::Thread inside a module that is unloaded one day. Header only: whoever
    includes it links JUCE.
*/

#include <atomic>

#include <juce_core/juce_core.h>

#if JUCE_LINUX
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace veltra {

/** The priorities that the system is described with (1 lowest, 5 everyday, 6 urgent) in JUCE's words. */
inline juce::Thread::Priority threadPriority (int priority) noexcept
{
    if (priority <= 3)
        return juce::Thread::Priority::low;

    return priority <= 5 ? juce::Thread::Priority::normal : juce::Thread::Priority::high;
}

/** Waits until a juce::Thread is really gone.

    JUCE detaches its native threads: after waitForThreadToExit the thread may still be on its way out through
    the last instructions of this module, and a module that is unmapped under it crashes the host. Call started()
    as the first act of run(), and waitUntilGone() after waitForThreadToExit() has returned true.
*/
class NativeThreadEnd
{
public:
    void started() noexcept
    {
#if JUCE_LINUX
        threadId.store (static_cast<pid_t> (::syscall (SYS_gettid)));
#endif
    }

    /** At most a second, in case the number already belongs to another thread. */
    void waitUntilGone() noexcept
    {
#if JUCE_LINUX
        const auto id = threadId.exchange (0);

        for (int turns = 0; id != 0 && turns < 10000 && ::syscall (SYS_tgkill, ::getpid(), id, 0) == 0; ++turns)
            ::usleep (100);
#endif
    }

private:
#if JUCE_LINUX
    std::atomic<pid_t> threadId { 0 };
#endif
};

}
