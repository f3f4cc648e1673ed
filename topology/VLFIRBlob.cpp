// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRBlob.h"

#include <array>
#include <cmath>
#include <new>

#include "common/BigEndian.h"

namespace veltra::topology {

namespace {

using R = VLFIRRecord;
using Field = std::uint32_t R::*;

constexpr std::array<Field, 8> firstFields = {
    &R::channelWord,    &R::gain,     &R::highRateDelay,   &R::highRateTapCount,
    &R::highRateOffset, &R::reserved, &R::lowRateTapCount, &R::lowRateOffset,
};

// The stage gains are in the order of the processor's stages, which is not that of their numbers.
constexpr std::array<Field, 12> secondFields = {
    &R::channelWord,    &R::gain,       &R::stageGain3,      &R::stageGain1,
    &R::stageGain4,     &R::stageGain2, &R::highRateDelay,   &R::highRateTapCount,
    &R::highRateOffset, &R::reserved,   &R::lowRateTapCount, &R::lowRateOffset,
};

constexpr VLFIRLayout firstLayout { VFIIR::channelFactor, VFIIR::SFilterBlock::words, firstFields };
constexpr VLFIRLayout secondLayout { VFIIR2::channelFactor, VFIIR2::SFilterBlock::words, secondFields };

static_assert (firstLayout.recordSize() == 32 && secondLayout.recordSize() == 48);

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
        putBigEndian (position, value);
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

const VLFIRLayout& layoutOf (VLFIRGeneration generation) noexcept
{
    return generation == VLFIRGeneration::first ? firstLayout : secondLayout;
}

std::uint32_t toFixed (float value, int fractionBits, int& clipCount) noexcept
{
    constexpr float bound = 2147483648.0f;

    const float scaled = value * std::ldexp (1.0f, fractionBits);
    float rounded = std::floor (scaled + 0.5f);

    if (std::isnan (rounded))
    {
        ++clipCount;
        return 0;
    }

    if (rounded < -bound || rounded > bound)
    {
        ++clipCount;
        rounded = std::copysign (bound, rounded);
    }

    // Beyond the highest 32-bit integer a conversion is undefined in C++; 64 bits hold it, and the lower half of
    // 2^31 is the word wanted.
    return static_cast<std::uint32_t> (static_cast<std::int64_t> (rounded));
}

float fromFixed (std::uint32_t word, int fractionBits) noexcept
{
    return std::ldexp (static_cast<float> (static_cast<std::int32_t> (word)), -fractionBits);
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
