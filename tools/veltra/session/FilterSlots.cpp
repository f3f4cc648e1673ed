// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/FilterSlots.h"

#include <cstdio>

#include "tools/ExitStatus.h"

namespace veltra::host {

using veltratune_io::Device;
using veltratune_io::FilterSet;

std::vector<FilterSet*> setsIn (Device& device, std::uint32_t slot)
{
    std::vector<FilterSet*> sets;

    for (FilterSet* set = nullptr; device.GetFilterSet (slot, static_cast<std::uint32_t> (sets.size()), &set);)
        sets.push_back (set);

    return sets;
}

std::string filterNames (FilterSet& set)
{
    std::string names;
    veltratune_io::Filter* filter = nullptr;

    for (std::uint32_t i = 0; set.GetFilter (i, &filter); ++i)
        names += (i == 0 ? "" : " ") + std::string (filter->GetName());

    return names;
}

void printSlots (Device& device)
{
    for (std::uint32_t slot = 0; slot < device.GetFilterSlotCount(); ++slot)
    {
        const auto sets = setsIn (device, slot);

        if (sets.empty())
            std::printf ("  %2u  empty\n", slot);

        for (auto* const set : sets)
            std::printf ("  %2u  \"%s\": %s\n", slot, set->GetName(), filterNames (*set).c_str());
    }
}

void checkSlot (const Device& device, std::uint32_t slot)
{
    const auto count = device.GetFilterSlotCount();

    if (slot >= count)
        throw Failure (kExitUsage, "The receiver has no slot " + std::to_string (slot) + "; it has "
                                       + (count == 0 ? "none" : "slots 0 to " + std::to_string (count - 1)) + ".");
}

bool emptySlot (DeviceSession& session, std::uint32_t slot)
{
    const auto sets = setsIn (session.device(), slot);

    for (auto* const set : sets)
        if (! session.device().RemoveFilterSet (set))
            throw Failure (kExitReceiver, "The receiver did not empty slot " + std::to_string (slot)
                                              + ": it refused or did not answer.");

    return ! sets.empty();
}

}
