// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/veltraio.pb.h"

namespace veltra::receiver {

/** What a slot holds for one sample rate. */
struct SlotBlock
{
    std::uint32_t sampleRate = 0;              ///< Hz
    std::vector<std::uint32_t> channelIndices; ///< the channels that it serves, in the order of its data
    std::uint32_t announcedBytes = 0;
    std::string bytes; ///< what has arrived from the beginning up to the first gap

    bool isComplete() const { return bytes.size() == announcedBytes; }

    /** CRC-32 of the bytes, as zlib, PNG and `python3 -c "import zlib..."` compute it. */
    std::uint32_t checksum() const;

    /** Takes a piece. It may repeat or overlap what is here already: a host that missed an acknowledgement sends
        again. Memory grows with the bytes that arrive, wherever they belong.
        @throws Refusal when the piece is empty, lies outside the announced size, or leaves too many gaps */
    void add (std::uint32_t offset, std::string_view piece);

private:
    std::map<std::uint32_t, std::string> later; ///< what has arrived after a gap, by offset, with gaps in between
};

/** One filter slot, with what was downloaded into it. */
struct Slot
{
    enum class State
    {
        empty,
        loading, ///< a download began and is not complete
        occupied ///< everything announced has arrived, or the profile says so
    };

    State state = State::empty;
    std::string name;
    std::string technology;
    std::uint32_t channelCount = 0;                ///< as announced
    std::optional<std::uint32_t> totalBytes;       ///< of all blocks, as announced
    std::vector<veltraio::FilterChannel> channels; ///< in the order of arrival
    std::vector<SlotBlock> blocks;                 ///< in the order of arrival

    /** @returns null when there is none for this rate */
    const SlotBlock* findBlock (std::uint32_t sampleRate) const;
};

/** The filter slots of one device, and the rules by which a download fills them: LoadFilter empties the slot
    and announces a filter, a FilterChannel follows for each of its channels, then for each sample rate a
    FilterData and the FilterDataChunks of its bytes.

    Each operation throws Refusal when the message does not fit, and then leaves the slot unchanged. Not thread-safe.
*/
class FilterMemory
{
public:
    /** Bytes that one slot can hold; a sender must not be able to fill the memory. */
    static constexpr std::uint32_t kSlotBytes = 256u * 1024u * 1024u;

    /** Longest filter name, in characters. */
    static constexpr std::size_t kMaxNameLength = 32;

    explicit FilterMemory (const veltraio::Unit::Device& device);

    /** Identifies a download of this receiver; never 0. */
    using DownloadId = std::uint64_t;

    /** Begins a download. One that is still open for the same slot ends. */
    void begin (DownloadId, const veltraio::LoadFilter&);

    void addChannel (DownloadId, std::uint32_t slot, const veltraio::FilterChannel&);

    /** @returns true when the filter is complete with this, which an empty last block can cause */
    bool addBlock (DownloadId, const veltraio::FilterData&);

    /** @returns true when the filter is complete with this chunk */
    bool addChunk (DownloadId, const veltraio::FilterDataChunk&);

    /** Empties the slot of a download, also after its last byte. */
    void cancel (DownloadId, std::uint32_t slot);

    /** Empties a slot; an empty one stays so. */
    void remove (std::uint32_t slot);

    const std::vector<Slot>& slots() const { return held; }

    /** @throws Refusal when the device has no such slot */
    void requireSlot (std::uint32_t slot) const;

private:
    Slot& loading (DownloadId, std::uint32_t slot);
    bool finish (Slot&);

    const veltraio::Unit::Device device;
    std::vector<Slot> held;
    std::vector<DownloadId> owners; ///< the last download into each slot
};

}
