// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include <juce_core/juce_core.h>

#include "common/Clock.h"
#include "common/Threads.h"
#include "protocol/Dispatcher.h"
#include "protocol/EventHandler.h"

namespace veltraio {

/** The keep-alive of a connection: after 5 seconds without a message that any handler knows it sends a Ping, and when
    the next 5 such seconds pass without a Pong it calls its callbacks, then again every 5 seconds while no Pong comes.
    Traffic other than Pong postpones the check but does not count as a Pong.
*/
class PingHandler final : public juce::Thread,
                          private EventHandler<Pong>,
                          private EventHandler<AnyMessage>
{
public:
    static constexpr std::int64_t kInterval_ms = 5000;

    /** Starts at once.
        @param poll_ms  how often the clock is looked at */
    explicit PingHandler (Dispatcher& dispatcher, veltra::MillisecondClock clock = veltra::steadyMilliseconds,
                          int poll_ms = 100);

    /** Waits for a running callback to return. Not on the keep-alive's own thread. */
    ~PingHandler() override;

    /** Called on the keep-alive's thread, in the order of adding. Any thread may add. */
    void addCallback (std::function<void()> callback);

private:
    void run() override;
    void checkAndPing();
    void callBack();

    void onEvent (const Pong& message) override;
    void onEvent (const AnyMessage& message) override;

    std::mutex callbacksLock;
    std::vector<std::function<void()>> callbacks;
    Dispatcher& dispatcher;
    const veltra::MillisecondClock clock;
    const int poll_ms;
    std::atomic<std::int64_t> nextPing;
    std::atomic<bool> pongSeen { true };
    veltra::NativeThreadEnd threadEnd;
    veltra::ipc::HandlerRegistration registration; // last, see there
};

}
