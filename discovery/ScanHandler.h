// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <juce_core/juce_core.h>

#include "common/Threads.h"
#include "discovery/Scanner.h"

namespace upnp {

/** A scan, from construction to destruction: it searches by SSDP on every interface of this machine, fetches the
    description of each device that answers, and reports those that speak the protocol to a callback.

    The description of a device that answers on several interfaces, or repeatedly, is fetched once. What a scan remembers
    and has waiting is bounded, since any device on the network can answer any number of times, under any name.
*/
class ScanHandler final : public veltraio::DeviceScanner,
                          private juce::Thread
{
public:
    static constexpr int searchPeriod_s = 3;

    /** USNs and LOCATIONs that are remembered; beyond that the oldest are forgotten. */
    static constexpr int maximumAnnouncements = 4096;

    /** Descriptions that wait to be fetched; further answers are ignored until they are repeated. */
    static constexpr int maximumQueue = 256;

    /** Devices that are reported. The application connects to each of them; a network has far fewer receivers. */
    static constexpr int maximumDevices = 64;

    /** @param callback      borrowed, outlives this; called on threads of the scan, one call at a time
        @param searchTarget  empty for "upnp:rootdevice" */
    ScanHandler (veltraio::IScanCallback* callback, const juce::String& searchTarget);

    /** Ends the scan and all its threads, within about a tenth of a second. */
    ~ScanHandler() override;

private:
    void run() override;
    void scan();

    veltraio::IScanCallback* const callback;
    const juce::String searchTarget;
    veltra::NativeThreadEnd threadEnd;
};

}
