// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "topology/VLFIRBlob.h"
#include "topology/VLFIRModel.h"

namespace veltra::topology {

/** A VLFIR blob taken apart. The bytes may come from anywhere: nothing outside of them is read, and what is kept
    is never larger than they are. */
struct VLFIRBlobContents
{
    VLFIRGeneration generation = VLFIRGeneration::second;
    std::uint32_t sampleRate = 0;   ///< Hz
    std::uint32_t channelCount = 0; ///< as the header has it

    /** The records word by word: all of them, or none when the blob is too short for them. */
    std::vector<VLFIRRecord> records;

    /** What is wrong with the blob, one readable sentence each; empty for a blob as the writers make it. */
    std::vector<std::string> problems;

    /** The channels with their taps; empty when there is a problem. */
    std::vector<VLFIRChannel> channels;
};

/** Reads a blob of a generation, which the blob itself does not name. Checks every offset and count.
    @throws std::bad_alloc */
VLFIRBlobContents readVLFIRBlob (std::span<const std::uint8_t> bytes, VLFIRGeneration generation);

/** The one generation as which a blob reads without a problem; none when there is no such, or when there are two
    (a blob without channels). */
std::optional<VLFIRGeneration> findVLFIRGeneration (std::span<const std::uint8_t> bytes);

}
