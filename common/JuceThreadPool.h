#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "common/JuceThreads.h"

namespace veltra {

/** A juce::ThreadPool for a module that is unloaded one day: when it has been destroyed, the last of its threads has
    run its last instruction (see NativeThreadEnd). Its destructor interrupts the running jobs and waits for them, and
    each of them must end within a few seconds of being asked: JUCE kills the threads of those that do not, which takes
    the process with it. Header only: whoever includes it links JUCE.
*/
class ThreadPool
{
public:
    ThreadPool (int numThreads, juce::Thread::Priority priority)
        : roll (std::make_shared<Roll> (numThreads)),
          pool (std::make_unique<juce::ThreadPool> (numThreads, 0, priority))
    {
        // JUCE shows nobody the threads of a pool. So each of them gets a job in which it leaves its number, and
        // which ends when all have: nobody can take two.
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

    /** Whether there is anybody to run a job: a system without room for another thread gives a pool without. Waits
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
