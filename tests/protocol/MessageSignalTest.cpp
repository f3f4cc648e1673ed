// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/MessageSignal.h"
#include "tests/support/Testing.h"

namespace {

std::atomic<int> yields { 0 };

}

/** Takes the place of the C library's for this program; to yield is only a hint. */
extern "C" int sched_yield() noexcept
{
    ++yields;
    return 0;
}

namespace {

using namespace std::chrono_literals;

TEST (MessageSignal, AWaiterOffersTheProcessorOnlyWhileAnswersComeFromNear)
{
    veltra::ipc::MessageSignal signal;

    const auto yieldsOfWait = [&] {
        const int before = yields;
        signal.wait (signal.getCount(), 2ms);
        return yields - before;
    };

    // Takes no time, as an answer from near.
    const auto answeredBeforeTheWait = [&] {
        const auto seen = signal.getCount();
        signal.give();
        signal.wait (seen, 2ms);
    };

    // To sleep, the standard library yields a few times as well.
    constexpr int asleep = 20;
    int awake = yieldsOfWait(); // nothing is known yet
    EXPECT_LT (yieldsOfWait(), asleep) << "nothing came for 2 ms";

    for (int i = 0; i < 1000 && awake < asleep; ++i) // on a busy machine the moment may be over at once
    {
        answeredBeforeTheWait();
        awake = yieldsOfWait();
    }

    EXPECT_GE (awake, asleep);

    answeredBeforeTheWait();
    std::jthread far ([&] {
        std::this_thread::sleep_for (5ms);
        signal.give();
    });
    signal.wait (signal.getCount(), 10000ms);
    EXPECT_LT (yieldsOfWait(), asleep) << "the last answer took 5 ms";
}

}
