// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/receiver/device/FilterMemory.h"

namespace veltra::receiver {

/** What a slot holds, in lines that a person reads and a script takes apart at the blanks:

        slot 0 name "Living room" technology "DRC" channels 8 rates 3 bytes 2097152 complete
        slot 0 rate 44100 channels 0,1,2,3,4,5,6,7 bytes 524288 crc32 0a1b2c3d complete

    The last word is "complete", or "incomplete" for a download that has not come to its end. The bytes and the
    CRC-32 (as zlib has it) are those that have arrived. The slots of a second device begin with "device 1 slot".
    A quote, backslash or control character in a name is shown as "?".

    @returns no lines for an empty slot */
std::vector<std::string> describeSlot (std::uint32_t device, std::uint32_t slotIndex, const Slot&);

/** Writes a slot into a folder, which is made when it is not there, in place of what was written for the slot
    before: the data of each rate as slotN_RATE.bin, and slotN.txt with describeSlot() and a line for each channel:

        slot 0 channel 2 name "C" gain_dB -1.5 delay_ms 0 maxGain_dB 12 latency_ms 10 noEq 0

    The files of a second device begin with "device1_".

    @returns false with words in `error` when that was not possible */
bool writeSlot (const std::filesystem::path& folder, std::uint32_t device, std::uint32_t slotIndex, const Slot&,
                std::string& error);

}
