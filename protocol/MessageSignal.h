// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <semaphore>
#include <thread>

namespace veltra::ipc {

/** Counts messages, and wakes those who wait for another one.

    A waiter first offers the processor to the others for a moment. The answer of a device near by comes within that
    time and then costs neither thread a system call to sleep or to wake, which is worth a tenth of an exchange. Where
    the last answer took longer, the moment would only cost processor time, and the waiter sleeps at once.
*/
class MessageSignal
{
public:
    static constexpr std::chrono::microseconds kPatienceAwake { 50 };

    /** An answer that takes longer comes from far. More than kPatienceAwake, because a waiter that sleeps is woken later. */
    static constexpr std::chrono::microseconds kLongestFromNear { 150 };

    void give()
    {
        ++count;

        if (const int waiting = sleepers; waiting > 0)
            wake.release (waiting);
    }

    std::uint32_t getCount() const { return count; }

    /** Returns when the count is another than the one seen, at the latest when the time is over, now and then earlier.
        @returns the count */
    std::uint32_t wait (std::uint32_t seen, std::chrono::milliseconds timeout)
    {
        using std::chrono::steady_clock;

        const auto start = steady_clock::now();

        while (isNear && count == seen && steady_clock::now() - start < kPatienceAwake)
            std::this_thread::yield();

        if (count == seen)
        {
            // Announced before the last look at the count, so that a give between the two does not pass unheard. A
            // waiter who needs its permit no more leaves it to the next one, who then returns early.
            ++sleepers;

            if (count == seen) // cppcheck-suppress identicalInnerCondition; other threads count
                static_cast<void> (wake.try_acquire_for (timeout));

            --sleepers;
        }

        isNear = count != seen && steady_clock::now() - start < kLongestFromNear;
        return count;
    }

private:
    std::atomic<std::uint32_t> count { 0 };
    std::atomic<int> sleepers { 0 };
    std::atomic<bool> isNear { true };
    std::counting_semaphore<> wake { 0 };
};

}
