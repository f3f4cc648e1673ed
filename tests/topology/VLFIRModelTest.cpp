// SPDX-License-Identifier: GPL-3.0-or-later

#include "topology/VLFIRModel.h"
#include "dsp/BandSplitFilters.h"
#include "dsp/ResponseError.h"
#include "tests/support/Testing.h"
#include "topology/VLFIRBlob.h"
#include "topology/VLFIRBlobReader.h"
#include "topology/VLFIRSplit.h"

namespace {

using namespace veltra::topology;
using Eigen::Index;
using Eigen::VectorXf;

VectorXf impulse (Index size, Index place) { return VectorXf::Unit (size, place); }

/** What the device holds after the conversion of one response: the blob's own integers. */
VLFIRChannel convert (const VectorXf& h, unsigned taps)
{
    VLFIRSplitter splitter (taps);
    const auto parts = splitter.split (h);

    VFIIR2::SFilter filter;
    filter.highRateTaps = parts.highRate.data();
    filter.lowRateTaps = parts.lowRate.data();
    filter.highRateTapCount = filter.lowRateTapCount = taps;
    filter.highRateDelay = parts.offset + veltra::dsp::kBandSplitDelay;

    std::vector<std::uint8_t> blob;
    int clips = 0;
    VFIIR2::makeBlob (48000, { &filter, 1 }, blob, &clips);
    EXPECT_EQ (0, clips);
    return readVLFIRBlob (blob, VLFIRGeneration::second).channels.at (0);
}

double error_dB (const VectorXf& wanted, const VLFIRChannel& channel)
{
    const VectorXf played = simulate (impulse (wanted.size(), 0), channel);
    return veltra::dsp::compareResponses (wanted, played, veltra::dsp::kBandSplitDelay, 48000.0).overall_dB;
}

TEST (VLFIRModel, TheHighRatePathIsADelayAndAFilter)
{
    VLFIRChannel channel;
    channel.highRateDelay = 5;
    channel.highRateTaps = (VectorXf (2) << 1.0f, -0.5f).finished();
    const VectorXf played = simulate ((VectorXf (100) << 1.0f, 2.0f, VectorXf::Zero (98)).finished(), channel);
    EXPECT_EQ ((VectorXf (9) << VectorXf::Zero (5), 1.0f, 1.5f, -1.0f, 0.0f).finished(), VectorXf (played.head (9)));
}

TEST (VLFIRModel, TheLowRatePathCarriesLowTonesAndNoHighOnes)
{
    VLFIRChannel channel;
    channel.lowRateTaps = VectorXf::Unit (4, 1); // one sample at the low rate: 16 at the full one
    channel.highRateTaps = VectorXf::Zero (4);
    channel.highRateDelay = 1u << 20; // far beyond the end

    const auto tone = [] (double frequency) {
        return VectorXf (VectorXf::NullaryExpr (48000, [=] (Index i) {
            return float (std::sin (2.0 * std::numbers::pi * frequency * double (i) / 48000.0));
        }));
    };

    // 298 samples of delay in the two band limits, and 16.
    const VectorXf low = tone (500.0), played = simulate (low, channel);
    EXPECT_LT ((played.segment (5314, 40000) - low.segment (5000, 40000)).cwiseAbs().maxCoeff(),
               2e-3f);                                                                                // twice 0.0066 dB
    EXPECT_LT (simulate (tone (2000.0), channel).segment (5000, 40000).cwiseAbs().maxCoeff(), 3e-5f); // -92.9 dB
}

TEST (VLFIRModel, TheResultEndsWithTheShorterPathAndTheImpulseResponseIsWhole)
{
    VLFIRChannel channel;
    channel.highRateTaps = channel.lowRateTaps = VectorXf::Ones (100);

    for (const unsigned delay : { 0u, 298u, 5000u })
    {
        channel.highRateDelay = delay;
        const VectorXf whole = impulseResponse (channel);
        const VectorXf padded = simulate (impulse (20000, 0), channel);
        EXPECT_EQ (std::max<Index> (delay + 100, (18 + 99) * 16 + 299), whole.size());
        EXPECT_EQ (whole, VectorXf (padded.head (whole.size())));
        EXPECT_EQ (0.0f, padded.tail (padded.size() - whole.size()).norm());
        EXPECT_NE (0.0f, whole[whole.size() - 1]);
    }

    channel.highRateDelay = 298;
    EXPECT_EQ (1000 + 99 + 298, simulate (impulse (1000, 0), channel).size());

    // The low-rate path: (1298 / 16 + 99) * 16 + 298.
    channel.highRateDelay = 100000;
    EXPECT_EQ ((81 + 99) * 16 + 298, simulate (impulse (1000, 0), channel).size());

    VLFIRChannel silent;
    silent.highRateDelay = 298;
    EXPECT_EQ (VectorXf (VectorXf::Zero (1298)), simulate (impulse (1000, 0), silent));
    EXPECT_EQ (0, simulate (VectorXf(), channel).size());
    EXPECT_GT (impulseResponse ({}).size(), 0);
}

TEST (VLFIRModel, AnImpulseOnTheGridComesOutAsAnImpulse298SamplesLater)
{
    // All that is left is the rounding of the conversion's single-precision transforms. Its largest part is the
    // impulse's own height, off by one or two units in the last place (-144 or -138 dB), as the transform's length
    // has it.
    for (const unsigned taps : { 1024u, 2048u, 4096u })
    {
        EXPECT_LT (error_dB (impulse (96000, 400), convert (impulse (96000, 400), taps)), -140.0) << taps;

        VectorXf played = simulate (impulse (48000, 0), convert (impulse (48000, 400), taps));
        EXPECT_NEAR (1.0f, played[698], 2.5e-7f);
        played[698] = 0.0f;
        EXPECT_LT (20.0 * std::log10 (played.norm()), -140.0) << taps;
    }
}

TEST (VLFIRModel, ElsewhereTheSplitSetsTheLimit)
{
    // Without room in front the part that would have to come before the first sample is lost; off the grid the
    // low-rate filter's ripple and aliases show, most half-way between two samples of the low rate.
    for (const auto& [place, expected_dB] : { std::pair { 0, -17.3 },
                                              { 16, -28.1 },
                                              { 100, -47.2 },
                                              { 200, -74.5 },
                                              { 298, -75.2 },
                                              { 401, -86.3 },
                                              { 408, -74.8 } })
    {
        const VectorXf h = impulse (48000, place);
        EXPECT_NEAR (expected_dB, error_dB (h, convert (h, 2048)), 0.5) << place;
    }
}

TEST (VLFIRSplit, TheLossInFrontIsThatOfTheFilterWithoutRoom)
{
    for (const auto& [place, expected_dB] : { std::pair { 0, -17.3 }, { 16, -28.1 }, { 100, -49.5 }, { 200, -91.2 } })
        EXPECT_NEAR (expected_dB, leadInLoss_dB (impulse (48000, place)), 0.1) << place;

    EXPECT_LT (leadInLoss_dB (impulse (48000, 298)), -140.0);
    EXPECT_LT (leadInLoss_dB (impulse (48000, 4000)), -140.0);
    EXPECT_NEAR (-17.3, leadInLoss_dB (impulse (1, 0)), 0.1);
    EXPECT_LT (leadInLoss_dB (VectorXf()), -1000.0);
}

TEST (VLFIRSplit, ShortResponsesAreFollowedByZeros)
{
    // The same response with and without its zeros gives the same parts but for the transforms' rounding.
    VectorXf h = VectorXf::Zero (20000);
    h.segment (300, 200) = VectorXf::Random (200);
    VLFIRSplitter splitter (1024);
    const auto padded = splitter.split (h), bare = splitter.split (h.head (900));
    EXPECT_EQ (padded.offset, bare.offset);
    EXPECT_LT ((padded.lowRate.head (57) - bare.lowRate.head (57)).norm(), 1e-5f);
    EXPECT_EQ (0.0f, bare.lowRate.tail (1024 - 57).norm());
    EXPECT_EQ (0.0f, bare.highRate.tail (1024 - 900 + bare.offset).norm());
}

TEST (VLFIRSplit, AWindowThatReachesItsLimitSaysSo)
{
    VLFIRSplitter splitter (
        1024); // the offset goes up to 768 - 298 = 470; an impulse at 409 + 470 still meets the apex
    EXPECT_FALSE (splitter.split (impulse (8000, 870)).cutOutAtLimit);
    const auto late = splitter.split (impulse (8000, 4000));
    EXPECT_TRUE (late.cutOutAtLimit);
    EXPECT_EQ (470u, late.offset);

    VLFIRSplitter unlimited (397); // 297 - 298 is no limit
    EXPECT_FALSE (unlimited.split (impulse (8000, 4000)).cutOutAtLimit);
    EXPECT_EQ (4000u - 158u, unlimited.split (impulse (8000, 4000)).offset);
}

}
