// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/ScanCallback.h"

#include "common/Log.h"
#include "common/Text.h"

namespace veltra::plugin {

ScanCallback::ScanCallback (veltraio::ConnectionManager& manager, CandidateList& candidatesToFill,
                            const juce::String& filter)
    : candidates (candidatesToFill)
{
    VELTRA_LOG (DEBUG, "Start device scan (filter='" << filter << "')");
    scanner = manager.CreateScanner (this, {});
}

void ScanCallback::OnScanStarted() { VELTRA_LOG (DEBUG, "Device scanning started..."); }

void ScanCallback::OnDeviceAdded (const juce::String& name, const juce::String& address,
                                  const juce::String& friendlyName)
{
    candidates.add ({ address, friendlyName });
    VELTRA_LOG (DEBUG, "Device added: " << name << " (" << logText (address.toStdString())
                                        << ") friendlyName = " << logText (friendlyName.toStdString()));
}

void ScanCallback::OnScanEnded() { VELTRA_LOG (DEBUG, "Device scanning ended..."); }

}
