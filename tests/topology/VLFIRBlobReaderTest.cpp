// SPDX-License-Identifier: GPL-3.0-or-later
#include <array>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "topology/VLFIRBlob.h"
#include "topology/VLFIRBlobReader.h"

namespace {

using namespace veltra::topology;
using Bytes = std::vector<std::uint8_t>;

/** Two channels, ids 3 and 4, with rows of 4 and 2 taps. */
Bytes makeBlob()
{
    static constexpr std::array<float, 4> highRate { 1.0f, -0.25f, 0.1f, -3.5f };
    static constexpr std::array<float, 2> lowRate { 0.5f, 2.0f };
    std::array<VFIIR2::SFilter, 2> filters;

    for (std::uint32_t i = 0; i < 2; ++i)
    {
        filters[i].highRateTaps = highRate.data();
        filters[i].highRateTapCount = highRate.size();
        filters[i].lowRateTaps = lowRate.data();
        filters[i].lowRateTapCount = lowRate.size();
        filters[i].highRateDelay = 300 + i;
        filters[i].channelWord = (3 + i) * VFIIR2::channelFactor;
        filters[i].gaindB = -20.0;
    }

    Bytes blob;
    VFIIR2::makeBlob (48000, filters, blob, nullptr);
    return blob;
}

VLFIRBlobContents read (const Bytes& bytes) { return readVLFIRBlob (bytes, VLFIRGeneration::second); }

/** The problems of the blob after one word of it was replaced. */
std::vector<std::string> problemsWith (std::size_t offset, std::uint32_t word)
{
    Bytes blob = makeBlob();
    vlfir::putWord (blob.data() + offset, word);
    const auto contents = read (blob);
    EXPECT_TRUE (contents.channels.empty());
    return contents.problems;
}

TEST (VLFIRBlobReader, WhatTheWriterWroteComesBack)
{
    const auto contents = read (makeBlob());
    EXPECT_TRUE (contents.problems.empty());
    EXPECT_EQ (48000u, contents.sampleRate);
    ASSERT_EQ (2u, contents.channels.size());

    const auto& channel = contents.channels[1];
    EXPECT_EQ (4u, channel.id);
    EXPECT_NEAR (0.1f, channel.gain, 1e-7f);
    EXPECT_EQ (301u, channel.highRateDelay);
    EXPECT_EQ ((Eigen::VectorXf (4) << 1.0f, -0.25f, 0.1f, -3.5f).finished(), channel.highRateTaps);
    EXPECT_EQ ((Eigen::VectorXf (2) << 0.5f, 2.0f).finished(), channel.lowRateTaps);
    EXPECT_EQ (0x00800000u, contents.records[0].stageGain3);
}

TEST (VLFIRBlobReader, EveryOffsetAndCountIsChecked)
{
    using Texts = std::vector<std::string>;
    constexpr std::uint32_t highest = std::numeric_limits<std::uint32_t>::max();

    EXPECT_EQ (Texts { "the file does not begin with BA BA CE CA" }, problemsWith (0, 0xBABACECB));
    EXPECT_EQ (Texts { "the file is too short for the records of 4294967295 channels" }, problemsWith (8, highest));
    EXPECT_EQ (Texts { "channel 1: channel word 53 is no multiple of 13" }, problemsWith (60, 53));

    EXPECT_EQ (Texts { "channel 0: high-rate delay 2097153 is above 2097152" }, problemsWith (12 + 24, 2097153));

    EXPECT_EQ (Texts { "channel 0: high-rate taps begin at 112 instead of 108" }, problemsWith (12 + 32, 112));
    EXPECT_EQ ((Texts { "channel 0: high-rate taps begin at 4294967295 instead of 108",
                        "channel 0: high-rate taps, 4 from 4294967295, reach beyond the end at 156" }),
               problemsWith (12 + 32, highest));
    EXPECT_EQ ((Texts { "channel 1: low-rate taps, 4294967295 from 148, reach beyond the end at 156" }),
               problemsWith (60 + 40, highest));
    EXPECT_EQ (Texts { "4 bytes follow the tap data" }, problemsWith (60 + 40, 1));

    Bytes tooLong (4 * VFIIR2::SFilterBlock::words + 4);
    vlfir::putWord (tooLong.data(), vlfir::magic);
    EXPECT_EQ ("the file is longer than the 792880 bytes that a device takes", read (tooLong).problems.at (0));

    Bytes shortened = makeBlob();
    shortened.pop_back();
    EXPECT_EQ (Texts { "channel 1: low-rate taps, 2 from 148, reach beyond the end at 155" },
               read (shortened).problems);
}

TEST (VLFIRBlobReader, EveryTruncationIsNoticed)
{
    const Bytes blob = makeBlob();

    for (std::size_t size = 0; size < blob.size(); ++size)
    {
        const auto contents = read (Bytes (blob.begin(), blob.begin() + static_cast<std::ptrdiff_t> (size)));
        EXPECT_FALSE (contents.problems.empty()) << size;
        EXPECT_TRUE (contents.channels.empty()) << size;
    }
}

TEST (VLFIRBlobReader, TheGenerationShowsInTheLayout)
{
    EXPECT_EQ (VLFIRGeneration::second, findVLFIRGeneration (makeBlob()));

    Bytes blob;
    const std::array<VFIIR::SFilter, 3> filters {};
    VFIIR::makeBlob (48000, filters, blob, nullptr);
    EXPECT_EQ (VLFIRGeneration::first, findVLFIRGeneration (blob));

    VFIIR::makeBlob (48000, {}, blob, nullptr);
    EXPECT_EQ (std::nullopt, findVLFIRGeneration (blob));
    EXPECT_EQ (std::nullopt, findVLFIRGeneration ({}));
}

}
