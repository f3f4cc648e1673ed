// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include "discovery/ConnectionManager.h"
#include "plugin/CandidateList.h"

namespace veltra::plugin {

/** A running search that fills a list of candidates until it is destroyed. */
class ScanCallback final : public veltraio::IScanCallback
{
public:
    /** @param candidatesToFill  borrowed
        @param filter            for the log only: the search itself has none */
    ScanCallback (veltraio::ConnectionManager& manager, CandidateList& candidatesToFill, const juce::String& filter);

    /** False when no transport can search. */
    bool isScanning() const noexcept { return scanner != nullptr; }

    // On threads of the scan
    void OnScanStarted() override;
    void OnDeviceAdded (const juce::String& name, const juce::String& address,
                        const juce::String& friendlyName) override;
    void OnScanEnded() override;

private:
    CandidateList& candidates;
    std::unique_ptr<veltraio::DeviceScanner> scanner; // last: its threads call back until it has gone
};

}
