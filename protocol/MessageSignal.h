#pragma once

#include <atomic>
#include <chrono>
#include <semaphore>
#include <thread>

namespace veltra::ipc {

/** Tells one waiting thread that something has arrived; given while nobody waits, it is kept for the next wait.

    The waiter first offers the processor to the others for a moment. The answer of a device near by comes within that
    time and then costs neither thread a system call to sleep or to wake, which is worth a tenth of an exchange.
*/
class MessageSignal
{
public:
    static constexpr std::chrono::microseconds patienceAwake { 50 };

    void give()
    {
        if (state.exchange (State::given) == State::asleep)
            wake.release();
    }

    /** @returns after a give since the last wait, at the latest when the time is over */
    void wait (std::chrono::milliseconds timeout)
    {
        using std::chrono::steady_clock;

        for (const auto end = steady_clock::now() + patienceAwake; state != State::given && steady_clock::now() < end;)
            std::this_thread::yield();

        if (auto expected = State::idle; state.compare_exchange_strong (expected, State::asleep))
            if (! wake.try_acquire_for (timeout))
                if (expected = State::asleep; ! state.compare_exchange_strong (expected, State::idle))
                    wake.acquire(); // given at the very last moment

        state = State::idle;
    }

private:
    enum class State
    {
        idle,
        asleep,
        given
    };

    std::atomic<State> state { State::idle };
    std::binary_semaphore wake { 0 };
};

}
