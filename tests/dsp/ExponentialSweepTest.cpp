// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/ExponentialSweep.h"
#include "tests/support/Testing.h"

namespace {

using veltra::dsp::makeShapedSweep;
using veltra::dsp::makeSweep;

/** Frequency in Hz round a sample: half the rate of the sign changes over some 20 periods. */
double frequencyAt (const std::vector<float>& sweep, std::size_t centre, std::size_t radius, double sampleRate)
{
    double first = 0.0, last = 0.0;
    int changes = -1;

    for (std::size_t i = centre - radius; i < centre + radius; ++i)
        if ((sweep[i] < 0.0f) != (sweep[i + 1] < 0.0f))
        {
            last = static_cast<double> (i) + sweep[i] / (sweep[i] - sweep[i + 1]);
            first = changes < 0 ? last : first;
            ++changes;
        }

    return changes / (last - first) / 2.0 * sampleRate;
}

TEST (Sweep, TheFrequencyGrowsExponentially)
{
    const auto sweep = makeSweep (48000 * 4, 20.0, 20000.0, 0, 1, 48000.0, 0.0);
    ASSERT_EQ (192000u, sweep.size());
    EXPECT_EQ (0.0f, sweep[0]);

    for (const double fraction : { 0.4, 0.6, 0.8 })
        EXPECT_NEAR (1.0,
                     frequencyAt (sweep, static_cast<std::size_t> (192000 * fraction), 1200, 48000.0)
                         / (20.0 * std::pow (1000.0, fraction)),
                     2e-3)
            << fraction;

    // The last sample is at the highest frequency itself.
    const double scale = 20.0 * std::numbers::pi / std::log (40.0);
    EXPECT_NEAR (std::sin (39.0 * scale), makeSweep (1000, 10.0, 400.0, 0, 1, 1000.0, 0.0).back(), 1e-4);

    const auto [lowest, highest] = std::minmax_element (sweep.begin(), sweep.end());
    EXPECT_NEAR (-1.0f, *lowest, 1e-4f);
    EXPECT_NEAR (1.0f, *highest, 1e-4f);
}

TEST (Sweep, TheFadeBeginsAtItsFrequencyAndEndsAtZero)
{
    const auto plain = makeSweep (48000, 10.0, 24000.0, 0, 1, 48000.0, 1.0);
    const auto faded = makeSweep (48000, 10.0, 24000.0, 0, 1, 48000.0, 300.0);
    EXPECT_EQ (0.0f, faded.back());

    // log (23700 / 10) / log (2400) of the way, at 47922.5 + 0.5
    const auto start = static_cast<std::ptrdiff_t> (std::log (2370.0) / std::log (2400.0) * 48000.0 + 0.5);
    EXPECT_TRUE (std::equal (plain.begin(), plain.begin() + start, faded.begin()));
    EXPECT_NE (plain[static_cast<std::size_t> (start)], faded[static_cast<std::size_t> (start)]);

    const auto middle = static_cast<std::size_t> (start + (48000 - start) / 2);
    EXPECT_NEAR (0.5f * plain[middle], faded[middle], 0.02f);

    EXPECT_NE (0.0f, makeSweep (4801, 10.0, 2399.0, 0, 1, 4801.0, 1.0).back()); // no fade up to 1 Hz
}

TEST (Sweep, PeriodsRepeatWithSilenceBetweenThem)
{
    const auto once = makeSweep (1000, 10.0, 400.0, 0, 1, 1000.0, 20.0);
    const auto thrice = makeSweep (1000, 10.0, 400.0, 50, 3, 1000.0, 20.0);
    ASSERT_EQ (3150u, thrice.size());

    for (std::ptrdiff_t period = 0; period < 3; ++period)
    {
        EXPECT_TRUE (std::equal (once.begin(), once.end(), thrice.begin() + period * 1050));
        EXPECT_EQ (50, std::count (thrice.begin() + period * 1050 + 1000, thrice.begin() + (period + 1) * 1050, 0.0f));
    }

    EXPECT_TRUE (makeSweep (1000, 10.0, 400.0, 50, 0, 1000.0, 20.0).empty());
    EXPECT_EQ (7u, makeSweep (0, 10.0, 400.0, 7, 1, 1000.0, 20.0).size());
    EXPECT_THROW (makeSweep (0xffffffff, 10.0, 400.0, 0xffffffff, 0xffffffff, 1000.0, 0.0), std::bad_alloc);
}

TEST (ShapedSweep, TheEnvelopeShapesTheFirstPeriodOnly)
{
    Eigen::MatrixXf envelope (2, 2);
    envelope << 20.0f, 0.5f, 200.0f, 0.25f;

    const auto plain = makeSweep (1000, 10.0, 400.0, 0, 2, 1000.0, 0.0);
    const auto shaped = makeShapedSweep (1000, 10.0, 400.0, 0, 2, 1000.0, 0.0, envelope);

    // The sweep passes 20 Hz at log (2) / log (40) * 1000 = 188 and 200 Hz at 812.
    for (Eigen::Index i = 0; i < 2000; ++i)
    {
        const double gain = i < 188 ? 0.5 : i < 812 ? 0.5 - 0.25 * double (i - 188) / 624.0 : i < 1000 ? 0.25 : 1.0;
        EXPECT_NEAR (gain * plain[size_t (i)], shaped[i], 1e-6) << i;
    }

    // Equal places give a step, no rows nothing, and parameters outside of the design stay in bounds.
    envelope << 20.0f, 2.0f, 20.0f, 4.0f;
    const auto stepped = makeShapedSweep (1000, 10.0, 400.0, 0, 2, 1000.0, 0.0, envelope);
    EXPECT_EQ (2.0f * plain[187], stepped[187]);
    EXPECT_EQ (4.0f * plain[188], stepped[188]);
    const auto bare = makeShapedSweep (1000, 10.0, 400.0, 0, 2, 1000.0, 0.0, Eigen::MatrixXf());
    EXPECT_TRUE (std::equal (plain.begin(), plain.end(), bare.data()));

    envelope << 1.0f, 0.5f, 1e6f, 0.25f;
    EXPECT_EQ (1000, makeShapedSweep (1000, 10.0, 400.0, 0, 1, 1000.0, 500.0, envelope).size());
    EXPECT_EQ (1000, makeShapedSweep (1000, 400.0, 10.0, 0, 1, 1000.0, 20.0, envelope).size());
    EXPECT_EQ (1000, makeShapedSweep (1000, 0.0, 0.0, 0, 1, 0.0, 20.0, envelope).size());
    EXPECT_EQ (1, makeShapedSweep (1, 10.0, 400.0, 0, 1, 1000.0, 20.0, envelope).size());
}

}
