// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRBlob.h"

#include <cmath>
#include <new>

#include "topology/FixedPoint.h"

namespace veltra::topology {

namespace {

std::uint32_t gainWord (double gaindB, int& clipCount)
{
    return toFixed (static_cast<float> (std::pow (10.0, gaindB / 20.0)), vlfir::gainFractionBits, clipCount);
}

void setStageGains (VLFIRRecord&, const VFIIR::SFilter&, int&) {}

void setStageGains (VLFIRRecord& record, const VFIIR2::SFilter& filter, int& clipCount)
{
    record.stageGain1 = gainWord (filter.stageGain1dB, clipCount);
    record.stageGain2 = gainWord (filter.stageGain2dB, clipCount);
    record.stageGain3 = gainWord (filter.stageGain3dB, clipCount);
    record.stageGain4 = gainWord (filter.stageGain4dB, clipCount);
}

/** Appends words to a buffer that was made large enough for all of them. */
class Writer
{
public:
    explicit Writer (std::uint8_t* start) : position (start) {}

    void word (std::uint32_t value)
    {
        vlfir::putWord (position, value);
        position += 4;
    }

    void taps (std::span<const float> values, int& clipCount)
    {
        for (const float value : values)
            word (toFixed (value, vlfir::tapFractionBits, clipCount));
    }

private:
    std::uint8_t* position;
};

template <class SFilter>
VLFIRRecord makeRecord (const SFilter& filter, const VLFIRLayout& layout, std::uint64_t offset, int& clipCount)
{
    VLFIRRecord record;
    record.channelWord = filter.channelWord;
    record.highRateTapCount = filter.highRateTapCount;
    record.highRateOffset = static_cast<std::uint32_t> (offset);
    record.lowRateTapCount = filter.lowRateTapCount;
    record.lowRateOffset = static_cast<std::uint32_t> (offset + 4 * std::uint64_t { filter.highRateTapCount });

    if (filter.channelWord % layout.channelFactor == 0)
    {
        record.gain = gainWord (filter.gaindB, clipCount);
        record.highRateDelay = filter.highRateDelay;
        record.reserved = filter.reserved;
        setStageGains (record, filter, clipCount);
    }

    return record;
}

template <class SFilter>
std::uint64_t blobSize (std::span<const SFilter> filters, const VLFIRLayout& layout)
{
    std::uint64_t taps = 0;

    for (const auto& filter : filters)
        taps += std::uint64_t { filter.highRateTapCount } + filter.lowRateTapCount;

    return vlfirBlobSize (layout, filters.size(), taps);
}

template <class SFilter>
int write (unsigned sampleRate, std::span<const SFilter> filters, std::vector<std::uint8_t>& blob, int* clipCount)
try
{
    const auto& layout = layoutOf (SFilter::generation);
    const auto size = blobSize (filters, layout);

    if (size > 4 * layout.workingWords)
        return -1;

    int clips = 0;
    std::vector<std::uint8_t> bytes (size);
    Writer writer (bytes.data());

    writer.word (vlfir::magic);
    writer.word (sampleRate);
    writer.word (static_cast<std::uint32_t> (filters.size()));

    auto offset = vlfirBlobSize (layout, filters.size(), 0);

    for (const auto& filter : filters)
    {
        const auto record = makeRecord (filter, layout, offset, clips);

        for (const auto field : layout.fields)
            writer.word (record.*field);

        offset += 4 * (std::uint64_t { filter.highRateTapCount } + filter.lowRateTapCount);
    }

    for (const auto& filter : filters)
    {
        writer.taps ({ filter.highRateTaps, filter.highRateTapCount }, clips);
        writer.taps ({ filter.lowRateTaps, filter.lowRateTapCount }, clips);
    }

    if (clipCount != nullptr)
        *clipCount += clips;

    blob = std::move (bytes);
    return static_cast<int> (size);
}
catch (const std::bad_alloc&)
{
    return -1;
}

}

int VFIIR::makeBlob (unsigned sampleRate, std::span<const SFilter> filters, std::vector<std::uint8_t>& blob,
                     int* clipCount)
{
    return write (sampleRate, filters, blob, clipCount);
}

int VFIIR2::makeBlob (unsigned sampleRate, std::span<const SFilter> filters, std::vector<std::uint8_t>& blob,
                      int* clipCount)
{
    return write (sampleRate, filters, blob, clipCount);
}

}
