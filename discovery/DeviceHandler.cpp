// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/DeviceHandler.h"

#include <array>
#include <string>
#include <utility>

#include "common/Clock.h"
#include "common/Contain.h"
#include "common/Log.h"
#include "protocol/SocketPlatform.h"

namespace upnp {

namespace {

constexpr int readerPriority = 5;
constexpr int timerPriority = 4;
constexpr int firstTick_ms = 100;
constexpr int wait_ms = 100;
constexpr std::size_t datagramSize = 4096;

/** Any device can send any number of empty datagrams, each of which causes a line in the log. */
constexpr int maximumReadWarnings = 100;

}

DeviceHandler::DeviceHandler (const juce::String& target, int longestWait_s, const juce::String& address,
                              Callback callback)
    : UdpConnection (0, readerPriority, address),
      searchTarget (target),
      localAddress (address),
      maxWait_s (longestWait_s),
      reader (target, [this, report = std::move (callback)] (const auto& usn, const auto& location) {
          report (usn, location, sender);
      })
{
    // A request that a stuck interface does not accept is given up, so that the timer's thread can always be stopped.
    if (isConnected())
        veltra::ipc::platform::prepareMulticastSocket (socket.getRawSocketHandle(), localAddress.toRawUTF8());

    timer = std::make_unique<TimerThread> ([this] { sendSearch (maxWait_s); }, maxWait_s * 1000);
    startReading();
}

DeviceHandler::~DeviceHandler()
{
    signalStop();
    timer.reset();
    stopReading();
}

void DeviceHandler::signalStop()
{
    timer->signalStop();
    signalThreadShouldExit();
    notify();
}

void DeviceHandler::sendSearch (int mx)
{
    const auto request = searchRequest (searchTarget, mx);
    const auto size = static_cast<int> (request.size());

    // A socket that is not bound would send from another interface.
    if (! isConnected() || socket.write (multicastGroup, ssdpPort, request.data(), size) != size)
    {
        VELTRA_LOG (WARN, "Sending M-SEARCH request failed!");
        return;
    }

    VELTRA_LOG (TRACE, "M-SEARCH request sent on IF " << localAddress << "...");
}

bool DeviceHandler::handleRead()
{
    std::array<char, datagramSize> datagram;
    int senderPort = 0;
    const int got = socket.read (datagram.data(), static_cast<int> (datagram.size()), false, sender, senderPort);

    if (got < 1)
    {
        if (readFailures < maximumReadWarnings)
        {
            ++readFailures;
            VELTRA_LOG (WARN, "Error reading datagram socket");
        }

        return false;
    }

    reader.take ({ datagram.data(), static_cast<std::size_t> (got) });
    return true;
}

DeviceHandler::TimerThread::TimerThread (std::function<void()> function, int intervalToKeep_ms)
    : juce::Thread ("upnp::DeviceHandler::TimerThread::TimerThread"),
      tick (std::move (function)),
      interval_ms (intervalToKeep_ms)
{
    startThread (veltra::threadPriority (timerPriority));
}

DeviceHandler::TimerThread::~TimerThread()
{
    signalStop();
    waitForThreadToExit (-1);
    threadEnd.waitUntilGone();
}

void DeviceHandler::TimerThread::signalStop()
{
    signalThreadShouldExit();
    notify();
}

void DeviceHandler::TimerThread::run()
{
    threadEnd.started();

    for (auto next = veltra::steadyMilliseconds() + firstTick_ms; ! threadShouldExit();)
    {
        if (const auto now = veltra::steadyMilliseconds(); now >= next)
        {
            next = now + interval_ms;
            veltra::contain ("A search", tick);
        }

        wait (wait_ms);
    }
}

}
