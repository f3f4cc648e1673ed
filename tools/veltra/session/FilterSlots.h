// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/veltraio.pb.h"
#include "tools/output/Json.h"
#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

/** The filter sets of a slot, borrowed from the device. */
std::vector<veltratune_io::FilterSet*> setsIn (veltratune_io::Device& device, std::uint32_t slot);

/** A line for each slot, as the receiver describes it. */
std::string slotLines (const veltraio::Unit::Device& device);

/** The same for scripts: an array of objects with "slot", "occupied" and "name". */
Json slotObjects (const veltraio::Unit::Device& device);

/** @param count  of the slots that the receiver has
    @throws       Failure (kExitUsage) for a slot that is not one of them */
void checkSlot (std::uint32_t count, std::uint32_t slot);

/** Takes all filters out of a slot, on the device too.
    @returns  whether there were any
    @throws   Failure (kExitReceiver)
*/
bool emptySlot (DeviceSession& session, std::uint32_t slot);

}
