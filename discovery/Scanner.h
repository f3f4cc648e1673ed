// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <juce_core/juce_core.h>

namespace veltraio {

/** Receives what a scan finds. OnScanStarted is called once before, OnScanEnded once after all other calls;
    OnDeviceAdded is called on threads of the scan, one call at a time, and must not wait for the scan to end. */
class IScanCallback
{
public:
    virtual ~IScanCallback() = default;

    virtual void OnScanStarted() = 0;

    /** @param name          the protocol's name
        @param address       what ConnectionManager::Connect takes
        @param friendlyName  the device's name for people, may be empty */
    virtual void OnDeviceAdded (const juce::String& name, const juce::String& address,
                                const juce::String& friendlyName) = 0;

    virtual void OnScanEnded() = 0;
};

/** A running scan; destroying it ends the scan. */
class DeviceScanner
{
public:
    virtual ~DeviceScanner() = default;
};

}
