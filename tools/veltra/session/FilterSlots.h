// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

/** The filter sets of a slot, borrowed from the device. */
std::vector<veltratune_io::FilterSet*> setsIn (veltratune_io::Device& device, std::uint32_t slot);

/** Names of a set's filters, apart by blanks. */
std::string filterNames (veltratune_io::FilterSet& set);

/** Prints a line for each slot, or for each set where a slot holds several. No network. */
void printSlots (veltratune_io::Device& device);

/** @throws  Failure (kExitUsage) for a slot that the device does not have */
void checkSlot (const veltratune_io::Device& device, std::uint32_t slot);

/** Takes all filters out of a slot, on the device too.
    @returns  whether there were any
    @throws   Failure (kExitReceiver)
*/
bool emptySlot (DeviceSession& session, std::uint32_t slot);

}
