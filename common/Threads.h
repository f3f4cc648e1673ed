// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    Threads inside a module that the host may unload, see docs/unloading.md.
*/

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <juce_core/juce_core.h>

#include "common/NativeThreadEnd.h"

namespace veltra {

/** JUCE's priority for the numbers that the system is described with (1 lowest, 5 normal, 6 high). */
inline juce::Thread::Priority threadPriority (int priority) noexcept
{
    if (priority <= 3)
        return juce::Thread::Priority::low;

    return priority <= 5 ? juce::Thread::Priority::normal : juce::Thread::Priority::high;
}

/** A juce::ThreadPool for a module that may be unloaded: when it has been destroyed, the last of its threads has
    run its last instruction (see NativeThreadEnd). Its destructor interrupts the running jobs and waits for them, and
    each of them must end within a few seconds of being asked: JUCE kills the threads of those that do not, which takes
    the process with it.
*/
class ThreadPool
{
public:
    ThreadPool (int numThreads, juce::Thread::Priority priority)
        : roll (std::make_shared<Roll> (numThreads)),
          pool (std::make_unique<juce::ThreadPool> (numThreads, 0, priority))
    {
        // JUCE does not expose the threads of a pool. So each of them gets a job that stores its number and ends
        // when all have: no thread can run two.
        for (int i = 0; i < numThreads; ++i)
            pool->addJob (std::make_unique<RollCall> (roll).release(), true);
    }

    ~ThreadPool()
    {
        roll->waitForAll();
        pool.reset();

        for (auto& thread : roll->threads)
            thread.waitUntilGone();
    }

    ThreadPool (const ThreadPool&) = delete;
    ThreadPool& operator= (const ThreadPool&) = delete;

    /** Whether there is a thread to run a job: where the system has no room for one, the pool has none. Waits
        until all have started, up to two seconds. */
    bool hasThreads() { return roll->waitForAll() > 0; }

    juce::ThreadPool& operator*() noexcept { return *pool; }
    juce::ThreadPool* operator->() noexcept { return pool.get(); }

private:
    struct Roll
    {
        explicit Roll (int numThreads) : threads (static_cast<std::size_t> (numThreads)) {}

        void enter()
        {
            {
                const std::lock_guard guard (mutex);
                threads[present++].started();
            }

            changed.notify_all();
            waitForAll();
        }

        /** Not for ever: a system without room for another thread gives a pool with fewer of them.
            @returns  how many there are */
        std::size_t waitForAll()
        {
            std::unique_lock guard (mutex);
            changed.wait_for (guard, std::chrono::seconds (2), [this] { return present == threads.size(); });
            return present;
        }

        std::vector<NativeThreadEnd> threads;
        std::size_t present = 0;
        std::mutex mutex;
        std::condition_variable changed;
    };

    struct RollCall final : juce::ThreadPoolJob
    {
        explicit RollCall (std::shared_ptr<Roll> rollToEnter)
            : ThreadPoolJob ("RollCall"),
              roll (std::move (rollToEnter))
        {
        }

        JobStatus runJob() override
        {
            roll->enter();
            return jobHasFinished;
        }

        std::shared_ptr<Roll> roll;
    };

    std::shared_ptr<Roll> roll;
    std::unique_ptr<juce::ThreadPool> pool;
};

}
