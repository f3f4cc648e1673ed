// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/output/Json.h"
#include "tools/receiver/device/FilterMemory.h"

namespace veltra::receiver {

/** The content of a slot in lines for people and scripts:

        slot 0 name "Living room" technology "DRC" channels 8 rates 3 bytes 2097152 complete
        slot 0 rate 44100 channels 0,1,2,3,4,5,6,7 bytes 524288 crc32 0a1b2c3d complete

    A line ends with "incomplete" while something is missing. The number of bytes and the CRC-32 of zlib are those of what
    has arrived up to the first gap. Lines of a second device begin with "device 1 slot". Quotes, backslashes and control
    characters in names are printed as "?".

    @returns no lines for an empty slot */
std::vector<std::string> describeSlot (std::uint32_t device, std::uint32_t slotIndex, const Slot&);

/** The same for scripts: "device", "slot", "name", "technology", "channels", "bytes", "complete", and an object for each rate
    in "blocks". */
Json slotObject (std::uint32_t device, std::uint32_t slotIndex, const Slot& slot);

/** Writes a slot into a folder, which is created if necessary, and removes what was written for the slot before. The
    files are slotN_RATE.bin for the data of each rate, and slotN.txt with describeSlot() and a line for each channel:

        slot 0 channel 2 name "C" gain_dB -1.5 delay_ms 0 maxGain_dB 12 latency_ms 10 noEq 0

    The files of a second device begin with "device1_".

    @returns false with the reason in `error`; then the folder has no file of the slot */
bool writeSlot (const std::filesystem::path& folder, std::uint32_t device, std::uint32_t slotIndex, const Slot&,
                std::string& error);

}
