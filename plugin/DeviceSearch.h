// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include <juce_core/juce_core.h>

#include "discovery/ConnectionManager.h"

namespace veltra::plugin {

/** A receiver that answered a search, or that the settings name. */
struct Candidate
{
    juce::String address;      ///< as ConnectionManager::Connect takes it
    juce::String friendlyName; ///< for people; may be empty
};

/** A search in the network, which collects receivers from its construction to its destruction. */
class DeviceSearch final : private veltraio::IScanCallback
{
public:
    /** @param manager  borrowed
        @param filter   for the log only: the search itself has none */
    DeviceSearch (veltraio::ConnectionManager& manager, const juce::String& filter);

    /** False when no transport can search. */
    bool isScanning() const noexcept { return scanner != nullptr; }

    /** Ends the search.
        @returns  the receivers in the order of arrival */
    std::vector<Candidate> finish();

private:
    // On threads of the scan
    void OnScanStarted() override;
    void OnDeviceAdded (const juce::String& name, const juce::String& address,
                        const juce::String& friendlyName) override;
    void OnScanEnded() override;

    std::mutex lock;
    std::vector<Candidate> candidates;
    std::unique_ptr<veltraio::DeviceScanner> scanner; // last: its threads call back until it has gone
};

}
