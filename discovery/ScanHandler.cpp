// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/ScanHandler.h"

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
#include "discovery/LocalAddresses.h"
#include "discovery/RecentTexts.h"

namespace upnp {

namespace {

constexpr int scanPriority = 5;
constexpr int poolPriority = 6;

/** Fetches one description, and reports the device if it speaks the protocol. */
class LambdaJob final : public juce::ThreadPoolJob
{
public:
    using OnFound = std::function<void (const juce::String& address, const juce::String& friendlyName)>;

    LambdaJob (const juce::String& locationToFetch, OnFound callback)
        : ThreadPoolJob ("LambdaJob::LambdaJob"),
          location (locationToFetch),
          onFound (std::move (callback))
    {
    }

    JobStatus runJob() override
    {
        veltra::contain ("A look at a device", [this] {
            juce::String address, friendlyName;

            if (getDeviceInfo (location, address, friendlyName, [this] { return shouldExit(); }))
                onFound (address, friendlyName);
        });

        return jobHasFinished;
    }

private:
    const juce::String location;
    const OnFound onFound;
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

    /** Any reader thread. */
    void answerCame (const juce::String& usnText, const juce::String& locationText)
    {
        const auto usn = usnText.toStdString();
        const auto location = locationText.toStdString();
        const juce::ScopedLock guard (lock);

        if (! seenUsn.contains (usn) && ! seenLocation.contains (location))
        {
            if (pool->getNumJobs() >= ScanHandler::maximumQueue)
            {
                warnOnce (queueWarned, "Too many devices answer at once, some of them wait for the next search");
                return;
            }

            VELTRA_LOG (DEBUG, "Added job entry " << veltra::logText (location));
            pool->addJob (std::make_unique<LambdaJob> (locationText,
                                                       [this, location] (const auto& address, const auto& name) {
                                                           deviceFound (location, address, name);
                                                       })
                              .release(),
                          true);
        }

        seenUsn.insert (usn);
        seenLocation.insert (location);
    }

private:
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
        handlers.push_back (std::make_unique<DeviceHandler> (
            target, searchPeriod_s, address,
            [&findings] (const auto& usn, const auto& location) { findings.answerCame (usn, location); }));
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
