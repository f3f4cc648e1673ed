// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/veltra/check/Check.h"

namespace veltra::check {

/** The bytes of one sample rate. */
struct TrialBlock
{
    std::uint32_t sampleRate = 0;        ///< Hz
    std::vector<std::uint32_t> channels; ///< their numbers
    std::string bytes;                   ///< as the receiver's topology has them
};

/** Filters that change nothing, for a receiver: every channel plays what it gets.

    @param allRates  one block for each rate that the plug-in would serve, for all channels; otherwise one block for one
                     channel, the shortest
    @throws          Finding when the receiver declares what cannot be converted */
std::vector<TrialBlock> trialFilter (const Subject& subject, bool allRates);

/** A download into the subject's slot, message by message. The slot is emptied when the object is destroyed. */
class TrialDownload
{
public:
    /** Sends what comes before the first chunk, for one block.
        @throws  Finding; Skip when the user gave no slot, or one that the receiver does not have */
    TrialDownload (Subject& subject, Wire& wire, const TrialBlock& block);

    /** For several blocks, which are announced one by one. */
    TrialDownload (Subject& subject, Wire& wire, const std::vector<TrialBlock>& blocks);
    ~TrialDownload();

    TrialDownload (const TrialDownload&) = delete;
    TrialDownload& operator= (const TrialDownload&) = delete;

    void announce (const TrialBlock& block);
    veltraio::FilterDataChunk chunk (const TrialBlock& block, std::size_t offset, std::size_t size) const;

    /** All chunks of a block behind an offset, as the plug-in sends them. */
    void sendFrom (const TrialBlock& block, std::size_t offset);

    /** Bytes that a chunk's envelope may have as data, at most. */
    std::size_t room (std::size_t offset) const;

private:
    void begin (const std::vector<TrialBlock>& blocks);

    Subject& subject;
    Wire& wire;
    const std::uint32_t slot;
};

/** Whether a slot is occupied, and by what, according to a new connection. */
veltraio::Unit::FilterSlot slotNow (const Subject& subject, std::uint32_t slot);

/** @throws Skip when the user gave no slot */
std::uint32_t slotToUse (const Subject& subject);

inline constexpr const char* kTrialName = "Check of the receiver";

}
