// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/ScanHandler.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/Contain.h"
#include "common/Log.h"
#include "common/Text.h"
#include "common/Threads.h"
#include "discovery/DeviceDescription.h"
#include "discovery/DeviceHandler.h"
#include "discovery/FetchQueue.h"
#include "discovery/LocalAddresses.h"
#include "discovery/RecentTexts.h"

namespace upnp {

namespace {

constexpr int scanPriority = 5;
constexpr int poolPriority = 6;

/** How long a first fetch may keep a thread while the first of another sender waits; it is then repeated, in full, behind
    those that wait. A little more than a server has for its status. */
constexpr std::chrono::milliseconds longestTurn { 1100 };

/** Whether a location leads to this machine by its text. What a name or a redirect leads to is seen when it is fetched. */
bool namesLoopback (const juce::String& location)
{
    const auto host = juce::URL (location).getDomain();
    return host.startsWith ("127.") || host.equalsIgnoreCase ("localhost") || host == "[::1]";
}

class LambdaJob final : public juce::ThreadPoolJob
{
public:
    explicit LambdaJob (std::function<void (const std::function<bool()>& shouldStop)> work)
        : ThreadPoolJob ("LambdaJob::LambdaJob"),
          action (std::move (work))
    {
    }

    JobStatus runJob() override
    {
        veltra::contain ("A look at a device", [this] { action ([this] { return shouldExit(); }); });
        return jobHasFinished;
    }

private:
    const std::function<void (const std::function<bool()>& shouldStop)> action;
};

/** The state of one scan, shared by the reader threads, which bring answers, and the pool's threads, which fetch. */
class Findings
{
public:
    explicit Findings (veltraio::IScanCallback& callbackToTell)
        : callback (callbackToTell),
          pool (juce::SystemStats::getNumCpus(), veltra::threadPriority (poolPriority))
    {
    }

    ~Findings()
    {
        const juce::ScopedLock guard (lock);
        isOver = true;
    }

    Findings (const Findings&) = delete;
    Findings& operator= (const Findings&) = delete;

    /** Any reader thread.
        @param sender      address that the answer came from
        @param isLoopback  it came from this machine, over its loopback interface */
    void answerCame (const juce::String& usnText, const juce::String& locationText, const juce::String& sender,
                     bool isLoopback)
    {
        const auto usn = usnText.toStdString();
        const auto location = locationText.toStdString();
        const juce::ScopedLock guard (lock);

        // Not remembered, since a device of this machine gives the same answer on the loopback interface.
        if (! isLoopback && namesLoopback (locationText))
        {
            warnOnce (loopbackWarned, "An answer from the network that leads to this machine is ignored");
            return;
        }

        if (! seenUsn.contains (usn) && ! seenLocation.contains (location))
        {
            if (queue.size() >= ScanHandler::maximumQueue)
            {
                warnOnce (queueWarned, "Too many devices answer at once, some of them wait for the next search");
                return;
            }

            VELTRA_LOG (DEBUG, "Added job entry " << veltra::logText (location));
            addFetch ({ sender.toStdString(), location, isLoopback, false });
        }

        seenUsn.insert (usn);
        seenLocation.insert (location);
    }

private:
    void addFetch (FetchQueue::Fetch entry)
    {
        queue.add (std::move (entry));
        pool->addJob (
            std::make_unique<LambdaJob> ([this] (const auto& shouldStop) { fetchNext (shouldStop); }).release(), true);
    }

    void repeat (const FetchQueue::Fetch& entry)
    {
        const juce::ScopedLock guard (lock);

        // The pool does not stop what is added while it is being destroyed.
        if (! isOver)
            addFetch ({ entry.sender, entry.location, entry.mayUseLoopback, true });
    }

    /** Any of the pool's threads: fetches the description whose turn it is, and reports the device if it speaks the
        protocol. */
    void fetchNext (const std::function<bool()>& shouldStop)
    {
        using std::chrono::steady_clock;

        const auto entry = queue.begin();

        if (! entry)
            return;

        const FetchQueue::End end { queue, *entry };
        const auto turnEnds = steady_clock::now() + longestTurn;
        bool isInterrupted = false;
        const auto shouldPause = [&] {
            isInterrupted = isInterrupted || (steady_clock::now() >= turnEnds && queue.isInTheWay (*entry));
            return isInterrupted || shouldStop();
        };

        juce::String address, friendlyName;

        if (getDeviceInfo (veltra::juceText (entry->location), address, friendlyName, shouldPause,
                           entry->mayUseLoopback))
            deviceFound (entry->location, address, friendlyName);
        else if (isInterrupted)
            repeat (*entry);
    }

    /** Any of the pool's threads. */
    void deviceFound (const std::string& location, const juce::String& address, const juce::String& friendlyName)
    {
        const juce::ScopedLock guard (lock);

        // Its USN and LOCATION had been forgotten, and it was fetched again.
        if (reported.contains (location))
            return;

        if (++devices > ScanHandler::maximumDevices)
        {
            warnOnce (devicesWarned, "Too many devices, only the first of them are used");
            return;
        }

        reported.insert (location);
        callback.OnDeviceAdded ("VeltraIO", address, friendlyName);
    }

    static void warnOnce (bool& done, const char* text)
    {
        if (! std::exchange (done, true))
            VELTRA_LOG (WARN, text);
    }

    veltraio::IScanCallback& callback;
    juce::CriticalSection lock; // held while the callback runs
    RecentTexts seenUsn { ScanHandler::maximumAnnouncements };
    RecentTexts seenLocation { ScanHandler::maximumAnnouncements };
    RecentTexts reported { ScanHandler::maximumDevices };
    int devices = 0;
    bool queueWarned = false;
    bool devicesWarned = false;
    bool loopbackWarned = false;
    bool isOver = false;
    FetchQueue queue;
    veltra::ThreadPool pool; // last: it is destroyed before what its jobs use
};

}

ScanHandler::ScanHandler (veltraio::IScanCallback* callbackToTell, const juce::String& target)
    : juce::Thread ("ScanHandler::ScanHandler"),
      callback (callbackToTell),
      searchTarget (target)
{
    VELTRA_LOG (DEBUG, "ScanHandler::ScanHandler");
    startThread (veltra::threadPriority (scanPriority));
}

ScanHandler::~ScanHandler()
{
    VELTRA_LOG (DEBUG, "ScanHandler::~ScanHandler");
    signalThreadShouldExit();
    notify();
    waitForThreadToExit (-1);
    threadEnd.waitUntilGone();
}

void ScanHandler::run()
{
    threadEnd.started();
    veltra::contain ("A scan", [this] { scan(); });
    veltra::contain ("The end of a scan", [this] { callback->OnScanEnded(); });
    VELTRA_LOG (DEBUG, "UPnP scanning thread stopped");
}

void ScanHandler::scan()
{
    Findings findings (*callback);
    std::vector<std::unique_ptr<DeviceHandler>> handlers;

    VELTRA_LOG (DEBUG, "UPnP scanning thread started");
    callback->OnScanStarted();

    const auto target = searchTarget.isEmpty() ? juce::String ("upnp:rootdevice") : searchTarget;

    for (const auto& address : searchAddresses (adapterAddresses()))
    {
        if (threadShouldExit())
            break;

        VELTRA_LOG (DEBUG, "Starting UPnP handler for IP " << address);
        handlers.push_back (
            std::make_unique<DeviceHandler> (target, searchPeriod_s, address,
                                             [&findings, isLoopback = address.startsWith ("127.")] (
                                                 const auto& usn, const auto& location, const auto& sender) {
                                                 findings.answerCame (usn, location, sender, isLoopback);
                                             }));
    }

    while (! threadShouldExit())
        wait (-1);

    // All of them before the first is waited for, so that the time does not grow with the number of interfaces.
    for (auto& handler : handlers)
        handler->signalStop();

    while (! handlers.empty())
        handlers.pop_back();
}

}
