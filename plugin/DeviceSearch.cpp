// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/DeviceSearch.h"

#include "common/Log.h"
#include "common/Text.h"

namespace veltra::plugin {

DeviceSearch::DeviceSearch (veltraio::ConnectionManager& manager, const juce::String& filter)
{
    VELTRA_LOG (DEBUG, "Start device scan (filter='" << filter << "')");
    scanner = manager.CreateScanner (this, {});
}

std::vector<Candidate> DeviceSearch::finish()
{
    scanner.reset();
    return std::move (candidates);
}

void DeviceSearch::OnScanStarted() { VELTRA_LOG (DEBUG, "Device scanning started..."); }

void DeviceSearch::OnDeviceAdded (const juce::String& name, const juce::String& address,
                                  const juce::String& friendlyName)
{
    {
        const std::lock_guard guard (lock);
        candidates.push_back ({ address, friendlyName });
    }

    VELTRA_LOG (DEBUG, "Device added: " << name << " (" << logText (address.toStdString())
                                        << ") friendlyName = " << logText (friendlyName.toStdString()));
}

void DeviceSearch::OnScanEnded() { VELTRA_LOG (DEBUG, "Device scanning ended..."); }

}
