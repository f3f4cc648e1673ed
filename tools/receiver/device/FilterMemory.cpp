// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/FilterMemory.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <zlib.h>

#include "tools/receiver/device/Messages.h"

namespace veltra::receiver {

namespace {

/** Gaps that a block may have at a time. */
constexpr std::size_t kMaxGaps = 1024;

using Stretches = std::map<std::uint32_t, std::string>;

void overwrite (std::string& target, std::size_t at, std::string_view piece)
{
    target.resize (std::max (target.size(), at + piece.size()));
    std::copy (piece.begin(), piece.end(), target.begin() + static_cast<std::ptrdiff_t> (at));
}

/** Moves the stretches that `target`, which begins at `start`, now touches to its end. */
void absorb (std::string& target, std::size_t start, Stretches& stretches, Stretches::iterator next)
{
    while (next != stretches.end() && next->first <= start + target.size())
    {
        const auto overlap = start + target.size() - next->first;

        if (overlap < next->second.size())
            target.append (next->second, overlap);

        next = stretches.erase (next);
    }
}

std::size_t characterCount (std::string_view utf8)
{
    return static_cast<std::size_t> (std::count_if (
        utf8.begin(), utf8.end(), [] (char c) { return (static_cast<unsigned char> (c) & 0xC0) != 0x80; }));
}

bool supports (const veltraio::Unit::Device& device, std::uint32_t sampleRate)
{
    return std::any_of (device.configurations().begin(), device.configurations().end(),
                        [&] (const auto& configuration) {
                            const auto& rates = configuration.samplerates();
                            return std::find (rates.begin(), rates.end(), sampleRate) != rates.end();
                        });
}

std::uint64_t announcedBytes (const Slot& slot)
{
    return std::accumulate (slot.blocks.begin(), slot.blocks.end(), std::uint64_t {},
                            [] (auto total, const auto& block) { return total + block.announcedBytes; });
}

/** Everything that was announced has arrived. */
bool isComplete (const Slot& slot)
{
    return slot.channels.size() == slot.channelCount && ! slot.blocks.empty()
           && std::all_of (slot.blocks.begin(), slot.blocks.end(),
                           [] (const auto& block) { return block.isComplete(); })
           && slot.totalBytes.value_or (announcedBytes (slot)) == announcedBytes (slot);
}

bool hasChannel (const veltraio::Unit::Device& device, std::uint32_t index)
{
    return std::any_of (device.outputchannels().begin(), device.outputchannels().end(),
                        [&] (const auto& channel) { return channel.channelindex() == index; });
}

}

std::uint32_t SlotBlock::checksum() const
{
    return static_cast<std::uint32_t> (::crc32_z (0, reinterpret_cast<const Bytef*> (bytes.data()), bytes.size()));
}

void SlotBlock::add (std::uint32_t offset, std::string_view piece)
{
    if (piece.empty())
        throw Refusal ("Filter data chunk without data");

    if (offset > announcedBytes || piece.size() > announcedBytes - offset)
        throw Refusal ("Filter data chunk of " + std::to_string (piece.size()) + " bytes at offset "
                       + std::to_string (offset) + " lies outside the announced " + std::to_string (announcedBytes)
                       + " bytes");

    if (offset <= bytes.size())
    {
        overwrite (bytes, offset, piece);
        absorb (bytes, 0, later, later.begin());
        return;
    }

    auto stretch = later.upper_bound (offset);
    const bool joinsNext = stretch != later.end() && stretch->first <= offset + piece.size();

    if (stretch != later.begin() && std::prev (stretch)->first + std::prev (stretch)->second.size() >= offset)
        --stretch;
    else if (joinsNext || later.size() < kMaxGaps)
        stretch = later.emplace_hint (stretch, offset, std::string());
    else
        throw Refusal ("Filter data arrives with too many gaps");

    overwrite (stretch->second, offset - stretch->first, piece);
    absorb (stretch->second, stretch->first, later, std::next (stretch));
}

const SlotBlock* Slot::findBlock (std::uint32_t sampleRate) const
{
    const auto found =
        std::find_if (blocks.begin(), blocks.end(), [&] (const auto& block) { return block.sampleRate == sampleRate; });
    return found == blocks.end() ? nullptr : &*found;
}

FilterMemory::FilterMemory (const veltraio::Unit::Device& description)
    : device (description),
      held (static_cast<std::size_t> (description.filterslots_size())),
      owners (held.size(), 0)
{
    for (std::size_t i = 0; i < held.size(); ++i)
    {
        const auto& slot = description.filterslots (static_cast<int> (i));
        held[i].name = slot.name();
        held[i].state = slot.isoccupied() ? Slot::State::occupied : Slot::State::empty;
    }
}

void FilterMemory::requireSlot (std::uint32_t slot) const
{
    if (slot >= held.size())
        throw Refusal ("No filter slot " + std::to_string (slot) + ", the device has " + std::to_string (held.size()));
}

void FilterMemory::begin (DownloadId id, const veltraio::LoadFilter& message)
{
    requireSlot (message.slotindex());
    const auto& filter = message.filter();

    if (characterCount (filter.name()) > kMaxNameLength)
        throw Refusal ("Filter name longer than " + std::to_string (kMaxNameLength) + " characters");

    if (filter.noofchannels() == 0)
        throw Refusal ("Filter without channels");

    if (filter.noofchannels() > static_cast<std::uint32_t> (device.outputchannels_size()))
        throw Refusal ("Filter with " + std::to_string (filter.noofchannels()) + " channels, the device has "
                       + std::to_string (device.outputchannels_size()));

    if (filter.has_totalnoofbytes() && filter.totalnoofbytes() > kSlotBytes)
        throw Refusal ("Filter of " + std::to_string (filter.totalnoofbytes()) + " bytes, a slot holds "
                       + std::to_string (kSlotBytes));

    auto& slot = held[message.slotindex()];
    slot = {};
    slot.state = Slot::State::loading;
    slot.name = filter.name();
    slot.technology = filter.technology();
    slot.channelCount = filter.noofchannels();

    if (filter.has_totalnoofbytes())
        slot.totalBytes = filter.totalnoofbytes();

    owners[message.slotindex()] = id;
}

Slot& FilterMemory::loading (DownloadId id, std::uint32_t slot)
{
    requireSlot (slot);

    if (id == 0 || owners[slot] != id)
        throw Refusal ("Filter slot " + std::to_string (slot) + " was not opened by this download");

    return held[slot];
}

void FilterMemory::addChannel (DownloadId id, std::uint32_t slotIndex, const veltraio::FilterChannel& channel)
{
    auto& slot = loading (id, slotIndex);

    for (const auto value : { channel.gain_db(), channel.delay_ms(), channel.maxgain_db(), channel.latency_ms() })
        if (! std::isfinite (value))
            throw Refusal ("Filter channel " + std::to_string (channel.channelindex())
                           + " has a value that is not finite");

    if (channel.channelindex() >= slot.channelCount)
        throw Refusal ("Filter channel " + std::to_string (channel.channelindex()) + " of a filter with "
                       + std::to_string (slot.channelCount) + " channels");

    if (std::any_of (slot.channels.begin(), slot.channels.end(),
                     [&] (const auto& known) { return known.channelindex() == channel.channelindex(); }))
        throw Refusal ("Filter channel " + std::to_string (channel.channelindex()) + " was described twice");

    slot.channels.push_back (channel);
}

bool FilterMemory::addBlock (DownloadId id, const veltraio::FilterData& message)
{
    auto& slot = loading (id, message.slotindex());
    const auto rate = std::to_string (message.samplerate()) + " Hz";

    if (slot.channels.size() != slot.channelCount)
        throw Refusal ("Filter data after " + std::to_string (slot.channels.size()) + " of "
                       + std::to_string (slot.channelCount) + " filter channels");

    if (! supports (device, message.samplerate()))
        throw Refusal ("Filter data at " + rate + ", which no configuration of the device offers");

    if (slot.findBlock (message.samplerate()) != nullptr)
        throw Refusal ("Filter data at " + rate + " was announced twice");

    if (! slot.blocks.empty() && ! slot.blocks.back().isComplete())
        throw Refusal ("Filter data at " + rate + " before that at " + std::to_string (slot.blocks.back().sampleRate)
                       + " Hz is complete");

    for (const auto index : message.channelindices())
        if (! hasChannel (device, index))
            throw Refusal ("Filter data for channel " + std::to_string (index) + ", which the device does not have");

    const auto room = slot.totalBytes.value_or (kSlotBytes);

    if (announcedBytes (slot) + message.sizebytes() > room)
        throw Refusal ("Filter data of " + std::to_string (message.sizebytes()) + " bytes at " + rate
                       + " exceeds the filter's total of " + std::to_string (room) + " bytes");

    SlotBlock block;
    block.sampleRate = message.samplerate();
    block.channelIndices.assign (message.channelindices().begin(), message.channelindices().end());
    block.announcedBytes = message.sizebytes();
    slot.blocks.push_back (std::move (block));
    slot.state = Slot::State::loading;
    return finish (slot);
}

bool FilterMemory::addChunk (DownloadId id, const veltraio::FilterDataChunk& message)
{
    auto& slot = loading (id, message.slotindex());

    if (slot.blocks.empty())
        throw Refusal ("Filter data chunk before any filter data was announced");

    if (message.data_size() != 1)
        throw Refusal ("Filter data chunk with " + std::to_string (message.data_size()) + " pieces of data");

    slot.blocks.back().add (message.dataoffset(), message.data (0));
    return finish (slot);
}

bool FilterMemory::finish (Slot& slot)
{
    if (slot.state != Slot::State::loading || ! isComplete (slot))
        return false;

    slot.state = Slot::State::occupied;
    return true;
}

void FilterMemory::cancel (DownloadId id, std::uint32_t slot)
{
    loading (id, slot) = {};
    owners[slot] = 0;
}

void FilterMemory::remove (std::uint32_t slot)
{
    requireSlot (slot);
    held[slot] = {};
    owners[slot] = 0;
}

}
