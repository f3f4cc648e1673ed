#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace veltra::ipc {

/** Tells waiting threads that something has arrived; given while nobody waits, it is kept for the next wait.

    It is meant for one waiter. Several do no harm: one may take what was given for another, which then looks again when
    its own time is over.

    The waiter first offers the processor to the others for a moment. The answer of a device near by comes within that
    time and then costs neither thread a system call to sleep or to wake, which is worth a tenth of an exchange.
*/
class MessageSignal
{
public:
    static constexpr std::chrono::microseconds patienceAwake { 50 };

    void give()
    {
        given = true;

        // The waiter counts itself before it looks at `given` for the last time, so one of the two sees the other.
        if (sleepers > 0)
        {
            { const std::lock_guard guard (lock); }
            wake.notify_all();
        }
    }

    /** @returns  after a give since the last wait, at the latest when the time is over */
    void wait (std::chrono::milliseconds timeout)
    {
        using std::chrono::steady_clock;

        for (const auto end = steady_clock::now() + patienceAwake; ! given && steady_clock::now() < end;)
            std::this_thread::yield();

        if (! given)
        {
            std::unique_lock guard (lock);
            ++sleepers;
            wake.wait_for (guard, timeout, [this] { return given.load(); });
            --sleepers;
        }

        given = false;
    }

private:
    std::atomic<bool> given { false };
    std::atomic<int> sleepers { 0 };
    std::mutex lock;
    std::condition_variable wake;
};

}
