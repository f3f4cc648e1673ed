// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <juce_core/juce_core.h>

#include "common/Threads.h"
#include "discovery/SsdpMessages.h"
#include "protocol/UdpConnection.h"

namespace upnp {

/** The SSDP search on one network interface, from construction to destruction: a request leaves after 100 ms and then
    once a period, and the answers that come back to its socket go to a callback.

    An interface that cannot be bound or does not accept a request is logged, each time, and tried again at the next
    period; nothing is sent from another interface instead.
*/
class DeviceHandler final : public veltra::ipc::UdpConnection
{
public:
    /** Takes USN and LOCATION of an answer, and the address that its last datagram came from. */
    using Callback =
        std::function<void (const juce::String& usn, const juce::String& location, const juce::String& sender)>;

    /** @param maxWait_s     the longest that a device may wait before it answers, and the period
        @param localAddress  of the interface; requests leave from there and from no other address
        @param callback      called on the reader thread */
    DeviceHandler (const juce::String& searchTarget, int maxWait_s, const juce::String& localAddress,
                   Callback callback);
    ~DeviceHandler() override;

    /** Makes both threads end without waiting for them; for a scan that has many handlers to destroy. */
    void signalStop();

    /** Sends one request. Called on the timer's thread. */
    void sendSearch (int mx);

private:
    class TimerThread;

    bool handleRead() override;

    const juce::String searchTarget;
    const juce::String localAddress;
    const int maxWait_s;
    juce::String sender; // reader thread only, as the following
    AnswerReader reader;
    int readFailures = 0;
    std::unique_ptr<TimerThread> timer;
};

/** Calls a function again and again on a thread of its own: for the first time after 100 ms, then once an interval,
    which is measured from the moment before the call. */
class DeviceHandler::TimerThread final : private juce::Thread
{
public:
    TimerThread (std::function<void()> tick, int interval_ms);
    ~TimerThread() override;

    void signalStop();

private:
    void run() override;

    const std::function<void()> tick;
    const std::int64_t interval_ms;
    veltra::NativeThreadEnd threadEnd;
};

}
