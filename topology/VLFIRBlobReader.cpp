// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRBlobReader.h"

#include <cstddef>

#include "common/BigEndian.h"

namespace veltra::topology {

namespace {

using Bytes = std::span<const std::uint8_t>;

VLFIRRecord readRecord (const std::uint8_t* from, const VLFIRLayout& layout)
{
    VLFIRRecord record;

    for (const auto field : layout.fields)
    {
        record.*field = getBigEndian (from);
        from += 4;
    }

    return record;
}

/** Checks that the rows of taps lie one behind the other from the end of the records to the end of the blob. */
class TapDataCheck
{
public:
    TapDataCheck (std::uint64_t start, std::uint64_t blobEnd) : position (start), end (blobEnd) {}

    void row (const std::string& what, std::uint32_t offset, std::uint32_t count, std::vector<std::string>& problems)
    {
        const std::uint64_t size = 4 * std::uint64_t { count };

        if (offset != position)
            problems.push_back (what + " begin at " + std::to_string (offset) + " instead of "
                                + std::to_string (position));

        if (offset > end || size > end - offset)
            problems.push_back (what + ", " + std::to_string (count) + " from " + std::to_string (offset)
                                + ", reach beyond the end at " + std::to_string (end));

        position += size;
    }

    void finish (std::vector<std::string>& problems) const
    {
        if (position < end)
            problems.push_back (std::to_string (end - position) + " bytes follow the tap data");
    }

private:
    std::uint64_t position;
    std::uint64_t end;
};

void checkRecords (VLFIRBlobContents& contents, const VLFIRLayout& layout, std::size_t size)
{
    TapDataCheck data (vlfirBlobSize (layout, contents.records.size(), 0), size);

    for (std::size_t i = 0; i < contents.records.size(); ++i)
    {
        const auto& record = contents.records[i];
        const std::string channel = "channel " + std::to_string (i) + ": ";

        if (record.channelWord % layout.channelFactor != 0)
            contents.problems.push_back (channel + "channel word " + std::to_string (record.channelWord)
                                         + " is not a multiple of " + std::to_string (layout.channelFactor));

        if (record.highRateDelay > vlfir::maxHighRateDelay)
            contents.problems.push_back (channel + "high-rate delay " + std::to_string (record.highRateDelay)
                                         + " is above " + std::to_string (vlfir::maxHighRateDelay));

        data.row (channel + "high-rate taps", record.highRateOffset, record.highRateTapCount, contents.problems);
        data.row (channel + "low-rate taps", record.lowRateOffset, record.lowRateTapCount, contents.problems);
    }

    data.finish (contents.problems);
}

Eigen::VectorXf readTaps (Bytes bytes, std::uint32_t offset, std::uint32_t count)
{
    Eigen::VectorXf taps (count);

    for (std::uint32_t i = 0; i < count; ++i)
        taps[i] = fromFixed (getBigEndian (bytes.data() + offset + 4 * std::size_t { i }), vlfir::tapFractionBits);

    return taps;
}

VLFIRChannel readChannel (Bytes bytes, const VLFIRRecord& record, const VLFIRLayout& layout)
{
    VLFIRChannel channel;
    channel.id = record.channelWord / layout.channelFactor;
    channel.gain = fromFixed (record.gain, vlfir::gainFractionBits);
    channel.highRateDelay = record.highRateDelay;
    channel.highRateTaps = readTaps (bytes, record.highRateOffset, record.highRateTapCount);
    channel.lowRateTaps = readTaps (bytes, record.lowRateOffset, record.lowRateTapCount);
    return channel;
}

}

VLFIRBlobContents readVLFIRBlob (Bytes bytes, VLFIRGeneration generation)
{
    const auto& layout = layoutOf (generation);
    VLFIRBlobContents contents;
    contents.generation = generation;

    const auto problem = [&contents] (std::string text) { contents.problems.push_back (std::move (text)); };

    if (bytes.size() < vlfir::headerSize)
    {
        problem ("the file is shorter than a header of " + std::to_string (vlfir::headerSize) + " bytes");
        return contents;
    }

    if (getBigEndian (bytes.data()) != vlfir::magic)
        problem ("the file does not begin with BA BA CE CA");

    contents.sampleRate = getBigEndian (bytes.data() + 4);
    contents.channelCount = getBigEndian (bytes.data() + 8);

    if (bytes.size() > 4 * layout.workingWords)
        problem ("the file is longer than the " + std::to_string (4 * layout.workingWords)
                 + " bytes that a device takes");

    if (vlfirBlobSize (layout, contents.channelCount, 0) > bytes.size())
    {
        problem ("the file is too short for the records of " + std::to_string (contents.channelCount) + " channels");
        return contents;
    }

    for (std::uint32_t i = 0; i < contents.channelCount; ++i)
        contents.records.push_back (readRecord (bytes.data() + vlfirBlobSize (layout, i, 0), layout));

    checkRecords (contents, layout, bytes.size());

    if (contents.problems.empty())
        for (const auto& record : contents.records)
            contents.channels.push_back (readChannel (bytes, record, layout));

    return contents;
}

std::optional<VLFIRGeneration> findVLFIRGeneration (Bytes bytes)
{
    const bool first = readVLFIRBlob (bytes, VLFIRGeneration::first).problems.empty();
    const bool second = readVLFIRBlob (bytes, VLFIRGeneration::second).problems.empty();

    if (first == second)
        return std::nullopt;

    return first ? VLFIRGeneration::first : VLFIRGeneration::second;
}

}
