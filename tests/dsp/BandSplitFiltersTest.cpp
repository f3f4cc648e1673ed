// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/BandSplitFilters.h"
#include "tests/support/Testing.h"

namespace {

using namespace veltra::dsp;

double sumOf (std::span<const float> taps) { return std::accumulate (taps.begin(), taps.end(), 0.0); }

/** Magnitude in dB at a frequency given as a fraction of the sample rate. */
double magnitude_dB (std::span<const float> taps, double frequency)
{
    std::complex<double> sum = 0.0;

    for (std::size_t n = 0; n < taps.size(); ++n)
        sum += static_cast<double> (taps[n])
               * std::polar (1.0, -2.0 * std::numbers::pi * frequency * static_cast<double> (n));

    return 20.0 * std::log10 (std::abs (sum));
}

struct Extremes
{
    double lowest, highest;
};

/** Lowest and highest magnitude in dB over a band. */
Extremes extremes (std::span<const float> taps, double from, double to)
{
    constexpr int steps = 4000;
    Extremes found { 1e9, -1e9 };

    for (int i = 0; i <= steps; ++i)
    {
        const double level = magnitude_dB (taps, from + (to - from) * i / steps);
        found = { std::min (found.lowest, level), std::max (found.highest, level) };
    }

    return found;
}

TEST (RateFilter, IsTheEquirippleLowPassThatTheDeviceRuns)
{
    EXPECT_NEAR (0.99924737, sumOf (kRateFilter), 1e-7);
    EXPECT_FLOAT_EQ (0.044745509f, kRateFilter[149]);
    EXPECT_EQ (kRateFilter.begin() + 149, std::max_element (kRateFilter.begin(), kRateFilter.end()));
    EXPECT_FLOAT_EQ (1.37013685e-05f, kRateFilter[0]);
    EXPECT_GT (kRateFilter[0], kRateFilter[1]); // the mark of an equiripple design
    EXPECT_TRUE (std::equal (kRateFilter.begin(), kRateFilter.end(), kRateFilter.rbegin()));

    // One mistyped digit among the upper four of any tap would show here.
    const auto passBand = extremes (kRateFilter, 0.0, 1.0 / 64.0);
    EXPECT_NEAR (-0.0066, passBand.lowest, 0.0002);
    EXPECT_NEAR (0.0066, passBand.highest, 0.0002);
    EXPECT_NEAR (-92.9, extremes (kRateFilter, 1.0 / 32.0, 0.5).highest, 0.1);
    EXPECT_GT (magnitude_dB (kRateFilter, 0.02075), -3.01); // -3 dB at 0.0208
    EXPECT_LT (magnitude_dB (kRateFilter, 0.02085), -3.01);
}

TEST (HighPassFilter, IsWhatTheLowRatePathLeavesOfAnImpulse)
{
    EXPECT_NEAR (-3.00364e-09, kHighPassFilter[0], 1e-13);
    EXPECT_NEAR (-1.1306721e-09, kHighPassFilter[1], 1e-15);
    EXPECT_NEAR (0.95837629, kHighPassFilter[298], 3e-8);
    EXPECT_NEAR (0.00136471, sumOf (kHighPassFilter), 1e-7);

    float skew = 0.0f;

    for (std::size_t i = 0; i < kHighPassFilter.size(); ++i)
        skew = std::max (skew, std::abs (kHighPassFilter[i] - kHighPassFilter[596 - i]));

    EXPECT_NEAR (1.2e-05, skew, 1e-6);

    // Above the low-rate path's stop band edge nothing is missing, below its pass band edge nearly all is.
    const auto above = extremes (kHighPassFilter, 0.04, 0.46);
    EXPECT_LT (std::max (-above.lowest, above.highest), 0.02);
    EXPECT_LT (extremes (kHighPassFilter, 0.0, 1.0 / 64.0).highest, -50.0);
}

TEST (SplitFilter, IsANyquistFilterOfTheDecimation)
{
    EXPECT_EQ (0.0625f, kSplitFilter[160]);
    EXPECT_NEAR (-1.5476411e-05, kSplitFilter[1], 1e-12);
    EXPECT_NEAR (-3.2870907e-05, kSplitFilter[2], 1e-12);
    EXPECT_TRUE (std::equal (kSplitFilter.begin(), kSplitFilter.end(), kSplitFilter.rbegin()));

    for (std::size_t i = 0; i < kSplitFilter.size(); i += kDecimation)
        EXPECT_LT (i == 160 ? 0.0f : std::abs (kSplitFilter[i]), 1e-17f) << i;

    EXPECT_NEAR (-6.02, magnitude_dB (kSplitFilter, 1.0 / 32.0), 0.01); // a Nyquist filter halves at the band's edge
}

}
