// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/SignalWatch.h"

#include <atomic>

#include "tools/veltra/terminal/Transient.h"

#if ! defined(_WIN32)
#include <csignal>
#include <pthread.h>
#endif

namespace veltra::host {

namespace {

enum State
{
    kFatal,
    kCancellable,
    kCancelled
};

std::atomic<State> state { kFatal };

}

CancelScope::CancelScope() noexcept { state = kCancellable; }
CancelScope::~CancelScope() { state = kFatal; }

bool CancelScope::requested() const noexcept { return state == kCancelled; }

#if defined(_WIN32)

SignalWatch::SignalWatch() = default;
SignalWatch::~SignalWatch() = default;

#else

namespace {

constexpr int kEndOfWatch = SIGUSR1;

/** Signals that the starter of the program had ignored (nohup) stay ignored. */
sigset_t signalsToWatch()
{
    sigset_t set;
    sigemptyset (&set);
    sigaddset (&set, kEndOfWatch);

    for (const int number : { SIGINT, SIGTERM, SIGHUP })
    {
        struct sigaction action = {};

        if (sigaction (number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset (&set, number);
    }

    return set;
}

[[noreturn]] void endBySignal (int number)
{
    Transient::removeAllForGood();
    std::signal (number, SIG_DFL);

    sigset_t set;
    sigemptyset (&set);
    sigaddset (&set, number);
    pthread_sigmask (SIG_UNBLOCK, &set, nullptr);
    std::raise (number);
    std::_Exit (128 + number); // not reached
}

void watch (sigset_t set)
{
    for (;;)
    {
        int number = 0;

        if (sigwait (&set, &number) != 0)
            continue;

        if (number == kEndOfWatch)
            return;

        auto expected = kCancellable;

        if (! state.compare_exchange_strong (expected, kCancelled))
            endBySignal (number);
    }
}

}

SignalWatch::SignalWatch()
{
    std::signal (SIGPIPE, SIG_IGN);

    const auto set = signalsToWatch();
    pthread_sigmask (SIG_BLOCK, &set, nullptr); // inherited by all threads that are made from here on
    thread = std::thread (watch, set);
}

SignalWatch::~SignalWatch()
{
    pthread_kill (thread.native_handle(), kEndOfWatch);
    thread.join();
}

#endif

}
