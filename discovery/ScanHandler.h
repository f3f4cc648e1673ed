// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <juce_core/juce_core.h>

#include "common/Threads.h"
#include "discovery/Scanner.h"

namespace upnp {

/** A scan: an SSDP search on every interface of this machine, a look at the description of each device that answers,
    and word to a callback of those that speak our protocol, from construction to destruction.

    A device that answers on several interfaces, or again, is looked at once. What a scan remembers and has waiting is
    bounded, since anybody on the network can answer, as often as he likes and in any name.
*/
class ScanHandler final : public veltraio::DeviceScanner,
                          private juce::Thread
{
public:
    static constexpr int searchPeriod_s = 3;

    /** USNs and LOCATIONs that are remembered; of more than that the oldest are forgotten. */
    static constexpr int maximumAnnouncements = 4096;

    /** Descriptions that wait to be fetched; further answers are ignored until they come again. */
    static constexpr int maximumQueue = 256;

    /** Devices that are reported, far more than a network has receivers: the caller connects to each of them. */
    static constexpr int maximumDevices = 64;

    /** @param callback      outlives this; told on threads of the scan, one at a time
        @param searchTarget  empty for "upnp:rootdevice" */
    ScanHandler (veltraio::IScanCallback* callback, const juce::String& searchTarget);

    /** Ends the scan and all its threads; takes about a tenth of a second, or what a fetch needs to be interrupted. */
    ~ScanHandler() override;

private:
    void run() override;
    void scan();

    veltraio::IScanCallback* const callback;
    const juce::String searchTarget;
    veltra::NativeThreadEnd threadEnd;
};

}
