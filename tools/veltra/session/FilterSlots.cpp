// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/FilterSlots.h"

#include <cstdio>

#include "common/Text.h"
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

std::string slotLines (const veltraio::Unit::Device& device)
{
    std::string lines;
    int number = 0;

    for (const auto& slot : device.filterslots())
    {
        char start[16];
        std::snprintf (start, sizeof (start), "  %2d  ", number++);
        lines += start + (slot.isoccupied() ? "\"" + logText (slot.name()) + "\"" : "empty") + "\n";
    }

    return lines;
}

Json slotObjects (const veltraio::Unit::Device& device)
{
    auto slots = Json::array();

    for (const auto& slot : device.filterslots())
        slots.push_back ({ { "slot", slots.size() }, { "occupied", slot.isoccupied() }, { "name", slot.name() } });

    return slots;
}

void checkSlot (std::uint32_t count, std::uint32_t slot)
{
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
