// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The filter sets that the host has loaded into the slots, and their way to the device.
*/

#include "plugin/DeviceImpl.h"

#include <set>

#include "common/Log.h"
#include "filters/FilterDescriptionParser.h"
#include "plugin/FilterDownload.h"
#include "plugin/HostCall.h"
#include "plugin/ProgressReport.h"

namespace veltra::plugin {

using namespace veltratune_io;
using filters::FilterImpl;
using filters::FilterSetsImpl;

namespace {

/** Slot numbers that a set may be loaded into, whatever the device has. */
constexpr std::uint32_t kSlotNumbers = 8;

constexpr std::uint32_t kRemoveTimeout_ms = 2000;

std::set<std::uint32_t> channelNumbers (const FilterSetsImpl& set)
{
    std::set<std::uint32_t> channels;
    set.forEachFilter ([&] (unsigned, const FilterImpl& filter) {
        channels.insert (filter.GetChannel());
        return true;
    });
    return channels;
}

/** Why a set was not loaded; null for a bad description, of which the log has the reason. */
const char* reasonOf (EResult result) noexcept
{
    switch (result)
    {
        case kResultFailed: return "no such slot";
        case kResultBadArgument: return "no filter description";
        case kResultChannelConflict: return "the slot holds a filter for one of the channels";
        default: return nullptr;
    }
}

bool shareAChannel (const FilterSetsImpl& set, const std::set<std::uint32_t>& channels)
{
    return ! set.forEachFilter (
        [&] (unsigned, const FilterImpl& filter) { return ! channels.contains (filter.GetChannel()); });
}

}

bool DeviceImpl::GetFilterSet (std::uint32_t slot, std::uint32_t index, FilterSet** set)
{
    if (slot >= GetFilterSlotCount() || set == nullptr)
        return false;

    const auto sets = filterSets.find (slot);

    if (sets == filterSets.end() || index >= sets->second.size())
        return false;

    *set = sets->second[index].get();
    return true;
}

EResult DeviceImpl::loadFilterSet (std::uint32_t slot, const char* text)
{
    if (slot >= kSlotNumbers)
        return kResultFailed;

    if (text == nullptr)
        return kResultBadArgument;

    auto set = std::make_unique<FilterSetsImpl>();
    parser::FIIR::DescriptionProblem problem;

    if (parser::FIIR::parse (text, set.get(), "Veltra", &problem) != parser::FIIR::Success)
    {
        VELTRA_LOG (ERROR, "Error in filter description, " << describe (problem));
        return kResultBadFilterText;
    }

    if (const auto present = filterSets.find (slot); present != filterSets.end())
    {
        const auto channels = channelNumbers (*set);

        for (const auto& other : present->second)
            if (shareAChannel (*other, channels))
                return kResultChannelConflict;
    }

    filterSets[slot].push_back (std::move (set));
    return kResultOk;
}

EResult DeviceImpl::LoadFilterSet (std::uint32_t slot, const char* text, std::uint64_t)
{
    return operation (kResultFailed, &lastError, [=, this] { return loadFilterSet (slot, text); });
}

std::optional<DeviceImpl::Place> DeviceImpl::findSet (const FilterSet* set)
{
    for (auto& [slot, sets] : filterSets)
        for (auto at = sets.begin(); at != sets.end(); ++at)
            if (at->get() == set)
                return Place { slot, sets, at };

    return {};
}

bool DeviceImpl::RemoveFilterSet (FilterSet* set)
{
    return operation (false, [=, this] {
        const auto place = findSet (set);

        if (! place)
            return false;

        veltraio::RemoveFilter message;
        message.set_deviceindex (deviceIndex);
        message.set_slotindex (place->slot);

        if (! sendCommand (dispatcher, message, kRemoveTimeout_ms).isAcknowledged())
            return false;

        place->sets.erase (place->at);
        return true;
    });
}

bool DeviceImpl::RemoveFilterSet2 (FilterSet* set, std::uint64_t) { return RemoveFilterSet (set); }

EResult DeviceImpl::DownloadFilterSet (std::uint32_t slot, const char* text, std::uint64_t, ProgressCallback* callback)
{
    return operation (kResultFailed, &lastError, [=, this] {
        ProgressReport progress (callback);
        progress.say ("#Preprocessing filters...");

        if (const auto result = loadFilterSet (slot, text); result != kResultOk)
        {
            if (const auto* const reason = reasonOf (result); reason != nullptr)
                VELTRA_LOG (ERROR, kNotStarted << reason << ", slot " << slot);

            return result;
        }

        // Not always the one just parsed: when the slot held sets for other channels, the oldest goes to the device.
        auto& workingSet = *filterSets[slot].front();
        const auto result = guarded (kResultFailed, &lastError, [&] {
            const DownloadTarget target { dispatcher, deviceIndex, deviceInfo, descriptions.topologyInfo,
                                          settings,   lastError };
            return FilterDownload (target, workingSet, slot, progress).run();
        });

        if (result != kResultOk)
            if (const auto place = findSet (&workingSet))
                place->sets.erase (place->at);

        return result;
    });
}

}
