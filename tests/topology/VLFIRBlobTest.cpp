// SPDX-License-Identifier: GPL-3.0-or-later

#include "common/BigEndian.h"
#include "tests/support/Testing.h"
#include "topology/VLFIRBlobReader.h"

namespace {

using namespace veltra::topology;
using Bytes = std::vector<std::uint8_t>;

constexpr float infinity = std::numeric_limits<float>::infinity();

TEST (FixedPoint, RoundsInSinglePrecisionAndCountsWhatLiesBeyondTheEnds)
{
    constexpr int tapBits = 29;

    struct Case
    {
        float value;
        std::uint32_t word;
        int clips;
        int bits = tapBits;
    };

    for (const auto& [value, word, clips, bits] :
         { Case { 0.0f, 0, 0 },
           { 1.0f, 0x20000000, 0 },
           { -1.0f, 0xE0000000, 0 },
           { std::ldexp (0.5f, -tapBits), 1, 0 }, // halves go up
           { std::ldexp (-0.5f, -tapBits), 0, 0 },
           { std::ldexp (-0.75f, -tapBits), 0xFFFFFFFF, 0 },
           { 0.5f, 0x00400000, 0, 23 },
           { 0.1f, 53687092, 0 },                             // as a float; in double precision 0.1 would give 53687091
           { std::ldexp (8388609.0f, -tapBits), 8388610, 0 }, // the half is added between two floats: to the even one
           { std::nextafter (4.0f, 0.0f), 0x7FFFFF80, 0 },
           { 4.0f, 0x80000000, 0 },
           { std::nextafter (4.0f, 5.0f), 0x80000000, 1 },
           { infinity, 0x80000000, 1 },
           { 256.0f, 0x80000000, 0, 23 },
           { -4.0f, 0x80000000, 0 },
           { std::nextafter (-4.0f, -5.0f), 0x80000000, 1 },
           { -infinity, 0x80000000, 1 },
           { std::numeric_limits<float>::quiet_NaN(), 0, 1 } })
    {
        int found = 0;
        EXPECT_EQ (word, toFixed (value, bits, found)) << value;
        EXPECT_EQ (clips, found) << value;

        if (clips == 0 && word != 0x80000000)
        {
            EXPECT_NEAR (value, fromFixed (word, bits), std::ldexp (1.0, -bits)) << value;
        }
    }

    EXPECT_EQ (-4.0f, fromFixed (0x80000000, tapBits));
}

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

/** Two channels, ids 2 and 0. */
Bytes secondGeneration()
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
    return blob;
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
    const auto blob = secondGeneration();
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
        }),
        Bytes (blob.begin(), blob.begin() + 60));

    const auto contents = readVLFIRBlob (blob, VLFIRGeneration::second);
    ASSERT_EQ (2u, contents.channels.size());
    EXPECT_EQ (96000u, contents.sampleRate);
    EXPECT_EQ (2u, contents.channels[0].id);
    EXPECT_NEAR (0.1f, contents.channels[0].gain, 1e-7f);
    EXPECT_EQ (300u, contents.channels[1].highRateDelay);
    EXPECT_EQ ((Eigen::VectorXf (2) << 1.0f, -1.0f).finished(), contents.channels[1].highRateTaps);
    EXPECT_EQ ((Eigen::VectorXf (3) << 0.5f, -4.0f, 0.0f).finished(), contents.channels[1].lowRateTaps);
    EXPECT_EQ (128u, contents.records[1].highRateOffset); // where channel 0 ends
}

TEST (VLFIRBlob, AChannelWordThatIsNotAMultipleLosesItsGainsAndDelay)
{
    const std::array first { makeFilter<VFIIR::SFilter> (13, 0.0) };
    const std::array second { makeFilter<VFIIR2::SFilter> (9, 0.0) };
    Bytes blob;

    ASSERT_EQ (64, VFIIR::makeBlob (48000, first, blob, nullptr));
    EXPECT_EQ (Bytes ({ 0, 0, 0, 13, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2 }),
               Bytes (blob.begin() + 12, blob.begin() + 28));

    ASSERT_EQ (80, VFIIR2::makeBlob (48000, second, blob, nullptr));
    EXPECT_EQ (Bytes (24, 0), Bytes (blob.begin() + 16, blob.begin() + 40));
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
    std::array over { fillBuffer<VFIIR2::SFilterBlock, VFIIR2::SFilter> (taps, 12, static_cast<std::size_t> (-1)) };
    EXPECT_EQ (-1, VFIIR2::makeBlob (48000, over, blob, &clips));
    over[0].highRateTapCount = over[0].lowRateTapCount = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ (-1, VFIIR2::makeBlob (48000, over, blob, &clips));
    EXPECT_EQ ((Bytes { 1, 2, 3 }), blob);
    EXPECT_EQ (0, clips);
}

TEST (VLFIRBlobReader, EveryOffsetAndCountIsChecked)
{
    using Texts = std::vector<std::string>;
    constexpr std::uint32_t highest = std::numeric_limits<std::uint32_t>::max();

    for (const auto& [offset, word, problems] : // the word is put there
         Rows<std::size_t, std::uint32_t, Texts> {
             { 0, 0xBABACECB, { "the file does not begin with BA BA CE CA" } },
             { 8, highest, { "the file is too short for the records of 4294967295 channels" } },
             { 60, 53, { "channel 1: channel word 53 is not a multiple of 13" } },
             { 12 + 24, 2097153, { "channel 0: high-rate delay 2097153 is above 2097152" } },
             { 12 + 32, 112, { "channel 0: high-rate taps begin at 112 instead of 108" } },
             { 12 + 32,
               highest,
               { "channel 0: high-rate taps begin at 4294967295 instead of 108",
                 "channel 0: high-rate taps, 2 from 4294967295, reach beyond the end at 148" } },
             { 60 + 40, highest, { "channel 1: low-rate taps, 4294967295 from 136, reach beyond the end at 148" } },
             { 60 + 40, 2, { "4 bytes follow the tap data" } } })
    {
        auto blob = secondGeneration();
        veltra::putBigEndian (blob.data() + offset, word);
        const auto contents = readVLFIRBlob (blob, VLFIRGeneration::second);
        EXPECT_EQ (problems, contents.problems);
        EXPECT_TRUE (contents.channels.empty());
    }

    Bytes tooLong (4 * VFIIR2::SFilterBlock::words + 4);
    veltra::putBigEndian (tooLong.data(), vlfir::magic);
    EXPECT_EQ ("the file is longer than the 792880 bytes that a device takes",
               readVLFIRBlob (tooLong, VLFIRGeneration::second).problems.at (0));

    const auto blob = secondGeneration();

    for (std::size_t size = 0; size < blob.size(); ++size)
    {
        const auto contents = readVLFIRBlob (std::span (blob).first (size), VLFIRGeneration::second);
        EXPECT_FALSE (contents.problems.empty()) << size;
        EXPECT_TRUE (contents.channels.empty()) << size;
    }
}

TEST (VLFIRBlobReader, TheGenerationShowsInTheLayout)
{
    EXPECT_EQ (VLFIRGeneration::second, findVLFIRGeneration (secondGeneration()));

    Bytes blob;
    const std::array<VFIIR::SFilter, 3> filters {};
    VFIIR::makeBlob (48000, filters, blob, nullptr);
    EXPECT_EQ (VLFIRGeneration::first, findVLFIRGeneration (blob));

    VFIIR::makeBlob (48000, {}, blob, nullptr);
    EXPECT_EQ (std::nullopt, findVLFIRGeneration (blob));
    EXPECT_EQ (std::nullopt, findVLFIRGeneration ({}));
}

}
