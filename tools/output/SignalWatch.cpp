// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/output/SignalWatch.h"

#include <atomic>

#include "tools/output/Transient.h"

namespace veltra {

namespace {

enum State
{
    kFatal,
    kCancellable,
    kCancelled
};

std::atomic<int> state { kFatal };

void takeSignal (int number)
{
    int expected = kCancellable;

    if (state.compare_exchange_strong (expected, kCancelled))
        return;

    Transient::removeAllForGood();
    platform::endBySignal (number);
}

}

SignalWatch::SignalWatch() : thread (takeSignal) {}

CancelScope::CancelScope() noexcept { state = kCancellable; }
CancelScope::~CancelScope() { state = kFatal; }

bool CancelScope::requested() const noexcept { return state == kCancelled; }

UncancellableScope::UncancellableScope() noexcept : stateBefore (state.exchange (kFatal)) {}
UncancellableScope::~UncancellableScope() { state = stateBefore; }

}
