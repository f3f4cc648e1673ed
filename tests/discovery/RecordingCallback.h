// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "discovery/Scanner.h"
#include "tests/support/Testing.h"

/** Writes down what a scan reports, one line a call: "started", "name|address|friendly name", "ended". */
class RecordingCallback final : public veltraio::IScanCallback
{
public:
    using Calls = std::vector<std::string>;

    void OnScanStarted() override { add ("started"); }
    void OnScanEnded() override { add ("ended"); }

    void OnDeviceAdded (const juce::String& name, const juce::String& address,
                        const juce::String& friendlyName) override
    {
        add ((name + "|" + address + "|" + friendlyName).toStdString());
    }

    Calls calls() const
    {
        const std::lock_guard guard (mutex);
        return lines;
    }

    /** Waits until so many calls have come, "started" included. @returns false after 20 seconds without them */
    bool waitForCalls (std::size_t count) const
    {
        std::unique_lock guard (mutex);
        return changed.wait_for (guard, std::chrono::seconds (20), [&] { return lines.size() >= count; });
    }

private:
    void add (const std::string& line)
    {
        {
            const std::lock_guard guard (mutex);
            lines.push_back (line);
        }

        changed.notify_all();
    }

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Calls lines;
};
