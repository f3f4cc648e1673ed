// SPDX-License-Identifier: GPL-3.0-or-later
#include <array>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "topology/VLFIRBlob.h"

namespace {

using namespace veltra::topology;
using Bytes = std::vector<std::uint8_t>;

constexpr std::array<float, 2> highRate { 1.0f, -1.0f };
constexpr std::array<float, 3> lowRate { 0.5f, 8.0f, 0.0f };

template <class SFilter>
SFilter makeFilter (std::uint32_t channelWord, double gaindB)
{
    SFilter filter;
    filter.highRateTaps = highRate.data();
    filter.highRateTapCount = highRate.size();
    filter.highRateDelay = 300;
    filter.lowRateTaps = lowRate.data();
    filter.lowRateTapCount = lowRate.size();
    filter.channelWord = channelWord;
    filter.gaindB = gaindB;
    return filter;
}

TEST (VLFIRBlob, TheFirstGenerationIsWrittenByteForByte)
{
    const std::array filters { makeFilter<VFIIR::SFilter> (2 * 9, 0.0) };
    Bytes blob;
    int clips = 5;

    EXPECT_EQ (64, VFIIR::makeBlob (48000, filters, blob, &clips));
    EXPECT_EQ (6, clips); // the tap of 8.0
    EXPECT_EQ ((Bytes {
                   0xBA, 0xBA, 0xCE, 0xCA, 0x00, 0x00, 0xBB, 0x80, 0x00, 0x00, 0x00, 0x01, // magic, 48000 Hz, 1 channel
                   0x00, 0x00, 0x00, 0x12, 0x00, 0x80, 0x00, 0x00,                         // channel word 18, gain 1
                   0x00, 0x00, 0x01, 0x2C,                                                 // delay 300
                   0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x2C,                         // 2 high-rate taps at 44
                   0x00, 0x00, 0x00, 0x00,                                                 // reserved
                   0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x34,                         // 3 low-rate taps at 52
                   0x20, 0x00, 0x00, 0x00, 0xE0, 0x00, 0x00, 0x00,                         // 1, -1
                   0x10, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // 0.5, 8 (clipped), 0
               }),
               blob);
}

TEST (VLFIRBlob, TheSecondGenerationHasStageGainsInTheProcessorsOrder)
{
    auto filter = makeFilter<VFIIR2::SFilter> (2 * 13, -20.0);
    filter.stageGain1dB = 20;
    filter.stageGain2dB = 40;
    filter.stageGain3dB = 0;
    filter.stageGain4dB = 6;
    filter.reserved = 7;
    const std::array filters { filter, makeFilter<VFIIR2::SFilter> (0, 0.0) };
    Bytes blob;

    EXPECT_EQ (148, VFIIR2::makeBlob (96000, filters, blob, nullptr));
    EXPECT_EQ (
        (Bytes {
            0xBA, 0xBA, 0xCE, 0xCA, 0x00, 0x01, 0x77, 0x00, 0x00, 0x00, 0x00, 0x02, // magic, 96000 Hz, 2 channels
            0x00, 0x00, 0x00, 0x1A, 0x00, 0x0C, 0xCC, 0xCD,                         // channel word 26, gain 0.1
            0x00, 0x80, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00,                         // stage 3: 1, stage 1: 10
            0x00, 0xFF, 0x64, 0xC2, 0x32, 0x00, 0x00, 0x00, // stage 4: 1.99526 (the half rounded to even), stage 2: 100
            0x00, 0x00, 0x01, 0x2C,                         // delay 300
            0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x6C, // 2 high-rate taps at 108
            0x00, 0x00, 0x00, 0x07,                         // reserved
            0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x74, // 3 low-rate taps at 116
            0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, // channel 0, gain 1
            0x00, 0x80, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, // unity in all stages
            0x00, 0x00, 0x01, 0x2C, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x80, // at 128, where channel 0 ends
            0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x88, 0x20, 0x00, 0x00, 0x00, 0xE0, 0x00,
            0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00,
            0xE0, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        }),
        blob);
}

TEST (VLFIRBlob, AChannelWordThatIsNoMultipleLosesItsGainsAndDelay)
{
    const std::array first { makeFilter<VFIIR::SFilter> (13, 0.0) };
    const std::array second { makeFilter<VFIIR2::SFilter> (9, 0.0) };
    Bytes blob;

    ASSERT_EQ (64, VFIIR::makeBlob (48000, first, blob, nullptr));
    EXPECT_EQ (Bytes ({ 0, 0, 0, 13,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2,
                        0, 0, 0, 0x2C, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0x34 }),
               Bytes (blob.begin() + 12, blob.begin() + 44));

    ASSERT_EQ (80, VFIIR2::makeBlob (48000, second, blob, nullptr));
    EXPECT_EQ (Bytes (24, 0), Bytes (blob.begin() + 16, blob.begin() + 40));
    EXPECT_EQ (Bytes ({ 0, 0, 0, 2, 0, 0, 0, 0x3C, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0x44 }),
               Bytes (blob.begin() + 40, blob.begin() + 60));
}

/** A channel whose rows together fill all but `spare` words of the device's buffer. */
template <class SFilterBlock, class SFilter>
SFilter fillBuffer (const std::vector<float>& taps, std::size_t recordWords, std::size_t spare)
{
    SFilter filter;
    filter.highRateTaps = filter.lowRateTaps = taps.data();
    filter.highRateTapCount = 100;
    filter.lowRateTapCount = static_cast<std::uint32_t> (SFilterBlock::words - 3 - recordWords - 100 - spare);
    return filter;
}

TEST (VLFIRBlob, TheDevicesBufferIsTheLimit)
{
    const std::vector<float> taps (200000);
    Bytes blob { 1, 2, 3 };
    int clips = 0;

    const std::array full { fillBuffer<VFIIR::SFilterBlock, VFIIR::SFilter> (taps, 8, 0) };
    EXPECT_EQ (529456, VFIIR::makeBlob (48000, full, blob, &clips));

    const std::array fullOfSecond { fillBuffer<VFIIR2::SFilterBlock, VFIIR2::SFilter> (taps, 12, 0) };
    EXPECT_EQ (792880, VFIIR2::makeBlob (48000, fullOfSecond, blob, &clips));

    blob = { 1, 2, 3 };
    const std::array over { fillBuffer<VFIIR2::SFilterBlock, VFIIR2::SFilter> (taps, 12,
                                                                               static_cast<std::size_t> (-1)) };
    EXPECT_EQ (-1, VFIIR2::makeBlob (48000, over, blob, &clips));

    auto endless = over;
    endless[0].highRateTapCount = endless[0].lowRateTapCount = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ (-1, VFIIR2::makeBlob (48000, endless, blob, &clips));
    EXPECT_EQ ((Bytes { 1, 2, 3 }), blob);
    EXPECT_EQ (0, clips);
}

}
