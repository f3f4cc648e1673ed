// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "topology/Topology.h"

namespace veltra::host {

/** The bytes of one sample rate of a receiver, and what has to be known to read them. */
struct ReceiverBlock
{
    std::vector<std::uint8_t> bytes;
    std::string topology;
    std::uint32_t channels = 0; ///< 0 for a dual-rate structure, whose bytes say it
    std::uint32_t taps = 0;     ///< for each channel; 0: what the channels and sections leave
    std::uint32_t sections = 0; ///< for each channel, FIIR
    std::uint32_t sampleRate = 0;
};

/** The bytes of a file, no more than 64 MiB, the largest block that a conversion makes.
    @throws  Failure (kExitInput) */
std::vector<std::uint8_t> readBlockFile (const std::filesystem::path& file);

/** A block's data for its reader, with channels and taps worked out from its size where the block leaves them open. Borrows the
    bytes.
    @throws  Failure (kExitInput) that says what the bytes could be instead, for those of another form */
topology::DeviceData deviceData (const ReceiverBlock& block, const std::filesystem::path& file);

}
