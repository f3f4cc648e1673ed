// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/PingHandler.h"

#include <utility>

#include "common/Contain.h"

namespace veltraio {

PingHandler::PingHandler (Dispatcher& dispatcherToUse, veltra::MillisecondClock clockToUse, int pollInterval_ms)
    : juce::Thread ("PingHandler::PingHandler"),
      dispatcher (dispatcherToUse),
      clock (std::move (clockToUse)),
      poll_ms (pollInterval_ms),
      nextPing (clock() + kInterval_ms),
      registration (dispatcherToUse.getConnection(), { static_cast<veltraio::EventHandler<Pong>*> (this),
                                                       static_cast<veltraio::EventHandler<AnyMessage>*> (this) })
{
    startThread();
}

PingHandler::~PingHandler()
{
    signalThreadShouldExit();
    notify();
    waitForThreadToExit (-1);
    threadEnd.waitUntilGone();
}

void PingHandler::addCallback (std::function<void()> callback)
{
    const std::lock_guard guard (callbacksLock);
    callbacks.push_back (std::move (callback));
}

void PingHandler::run()
{
    threadEnd.started();

    while (! threadShouldExit())
    {
        if (clock() < nextPing)
            wait (poll_ms);
        else
            veltra::contain ("A keep-alive", [this] { checkAndPing(); });
    }
}

void PingHandler::checkAndPing()
{
    nextPing = clock() + kInterval_ms;
    const bool lost = ! pongSeen.exchange (false);

    if (lost)
        callBack();

    if (dispatcher.Send (Ping()) != 0 && ! lost)
        callBack();
}

void PingHandler::callBack()
{
    const auto copy = [this] {
        const std::lock_guard guard (callbacksLock);
        return callbacks;
    }();

    for (const auto& callback : copy)
        veltra::contain ("A keep-alive callback", callback);
}

void PingHandler::onEvent (const Pong&) { pongSeen = true; }

void PingHandler::onEvent (const AnyMessage&) { nextPing = clock() + kInterval_ms; }

}
