// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ReceiverSearch.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <optional>
#include <ostream>

#include "common/Numbers.h"
#include "common/SettingKeys.h"
#include "common/Text.h"
#include "discovery/ConnectionManager.h"
#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/veltra/session/ConnectionLog.h"
#include "tools/veltra/session/ReceiverDescription.h"

namespace veltra::host {

namespace {

using Clock = std::chrono::steady_clock;

/** What the scan reports, on its way from the scan's threads to the program's. */
class Arrivals final : public veltraio::IScanCallback
{
public:
    void OnScanStarted() override {}
    void OnScanEnded() override {}

    void OnDeviceAdded (const juce::String&, const juce::String& address, const juce::String& friendlyName) override
    {
        {
            const std::lock_guard guard (mutex);
            waiting.push_back (
                { friendlyName.toStdString(), address.fromFirstOccurrenceOf (":", false, false).toStdString(), {} });
        }

        changed.notify_one();
    }

    /** Waits for the next, until a time. */
    std::optional<FoundReceiver> next (Clock::time_point end)
    {
        std::unique_lock guard (mutex);

        if (! changed.wait_until (guard, end, [this] { return ! waiting.empty(); }))
            return std::nullopt;

        auto first = std::move (waiting.front());
        waiting.pop_front();
        return first;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<FoundReceiver> waiting;
};

/** Maker and model. */
std::string modelAt (veltraio::ConnectionManager& connections, const std::string& address)
{
    const auto unit = readUnit (connections, address);
    return unit ? unit->manufacturer() + " " + unit->name() : std::string();
}

}

std::vector<FoundReceiver> searchReceivers (std::chrono::milliseconds duration, const SessionOptions& options,
                                            const std::function<void (const FoundReceiver&)>& onFound)
{
    const ConnectionLog log (options.log, options.logLevel);
    const auto end = Clock::now() + duration;
    std::vector<FoundReceiver> found;
    veltraio::ConnectionManager connections (0);
    Arrivals arrivals;
    auto scan = connections.CreateScanner (&arrivals, {});

    const auto take = [&] (FoundReceiver receiver) {
        if (std::any_of (found.begin(), found.end(),
                         [&] (const auto& known) { return known.address == receiver.address; }))
            return;

        receiver.model = modelAt (connections, receiver.address);
        onFound (receiver);
        found.push_back (std::move (receiver));
    };

    while (auto receiver = arrivals.next (end))
        take (std::move (*receiver));

    scan.reset();

    // Those that came while an earlier one was asked for its model.
    while (auto receiver = arrivals.next (Clock::now()))
        take (std::move (*receiver));

    return found;
}

std::chrono::milliseconds searchTime (const SessionOptions& options)
{
    const auto setting = options.settings.find (keys::kUPnPTimeout);
    return std::chrono::milliseconds (
        setting == options.settings.end() ? 6000 : std::clamp (toInt (setting->second), 0, 600000));
}

std::string lineOf (const FoundReceiver& receiver)
{
    auto line = receiver.name.empty() ? "(no name)" : logText (receiver.name);
    line.resize (std::max<std::size_t> (line.size() + 2, 24), ' ');
    line += logText (receiver.address);
    line.resize (std::max<std::size_t> (line.size() + 2, 48), ' ');
    return line + (receiver.model.empty() ? "does not answer" : logText (receiver.model));
}

std::string onlyReceiver (const SessionOptions& options)
{
    const auto duration = searchTime (options);
    notes() << "Searching the network for " << static_cast<double> (duration.count()) / 1000.0 << " s ..." << std::endl;
    const auto found = searchReceivers (
        duration, options, [] (const auto& receiver) { notes() << "  " << lineOf (receiver) << std::endl; });

    if (found.empty())
        throw Failure (kExitNoReceiver,
                       "No receiver was found on the network; give an address with --device HOST:PORT.");

    if (found.size() > 1)
        throw Failure (kExitNoReceiver,
                       "Several receivers were found on the network; choose one with --device HOST:PORT.");

    return found.front().address;
}

}
