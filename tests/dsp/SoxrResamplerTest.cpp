// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "dsp/SoxrResampler.h"

namespace {

using veltra::dsp::SoxrResampler;

/** All that comes out for a signal that goes in by blocks of some size, and silence behind it. */
std::vector<double> resampled (const std::vector<double>& signal, double ratio, size_t blockSize)
{
    SoxrResampler resampler (ratio);
    std::vector<double> in = signal;
    in.resize (signal.size() + 40000);
    std::vector<double> out;

    for (size_t at = 0; at < in.size(); at += blockSize)
    {
        double* made = nullptr;
        const int count =
            resampler.process (in.data() + at, static_cast<int> (std::min (blockSize, in.size() - at)), made);
        out.insert (out.end(), made, made + count);
    }

    out.resize (static_cast<size_t> (std::round (static_cast<double> (signal.size()) * ratio)));
    return out;
}

double largestDifference (const std::vector<double>& a, const std::vector<double>& b, size_t offsetInB)
{
    double largest = 0.0;

    for (size_t i = 0; i < a.size(); ++i)
        largest = std::max (largest, std::abs (a[i] - b.at (i + offsetInB)));

    return largest;
}

TEST (SoxrResampler, TheFirstSamplesAreAsGoodAsTheRest)
{
    struct
    {
        int in, out;
    } const periods[] { { 320, 147 }, { 160, 147 }, { 640, 147 }, { 147, 160 },
                        { 24, 23 },   { 2, 1 },     { 1, 2 },     { 1536, 1535 } };

    for (const auto [in, out] : periods)
    {
        // It begins with a step. Whole periods of silence in front move it by whole samples.
        std::vector<double> atStart (5000);

        for (size_t n = 0; n < atStart.size(); ++n)
            atStart[n] = std::cos (0.1 * static_cast<double> (n));

        const auto shift = static_cast<size_t> (50000 / in);
        std::vector<double> later (shift * static_cast<size_t> (in));
        later.insert (later.end(), atStart.begin(), atStart.end());

        const double ratio = static_cast<double> (out) / in;
        EXPECT_LT (largestDifference (resampled (atStart, ratio, 4096), resampled (later, ratio, 4096),
                                      shift * static_cast<size_t> (out)),
                   2e-6)
            << in << " to " << out; // the library works in single precision
    }
}

TEST (SoxrResampler, TheSizeOfTheBlocksDoesNotMatter)
{
    std::vector<double> signal (20000);

    for (size_t n = 0; n < signal.size(); ++n)
        signal[n] = std::sin (0.3 * static_cast<double> (n)) + (n % 7 == 0 ? 1.0 : 0.0);

    const auto whole = resampled (signal, 147.0 / 320.0, 4096);
    EXPECT_EQ (whole, resampled (signal, 147.0 / 320.0, 1000));
    EXPECT_EQ (whole, resampled (signal, 147.0 / 320.0, 60000));
}

}
