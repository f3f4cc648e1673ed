// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/EnergyWindow.h"
#include "tests/support/Testing.h"

namespace {

using Eigen::VectorXf;
using veltra::dsp::EnergyWindow;
using veltra::dsp::extractEnergyWindow;

VectorXf impulse (Eigen::Index size, Eigen::Index place) { return VectorXf::Unit (size, place); }

TEST (EnergyWindow, ALoneImpulseEndsUpAtTheApex)
{
    using Eigen::Index;

    for (const auto& [size, place, windowSize, apex, limit, expected] :
         Rows<Index, Index, Index, float, int, unsigned> {
             { 20000, 7000, 1000, 0.4f, 0, 6600 },
             { 20000, 399, 1000, 0.4f, 0, 0 },    // an early one keeps its place
             { 1000, 300, 100, 0.0f, 0, 300 },    // the triangle falls only
             { 7001, 7000, 1000, 0.4f, 0, 6600 }, // what lies beyond the response is zero
             { 4, 3, 1000, 0.4f, 0, 0 },
             { 20000, 7000, 1000, 0.4f, -1, 6600 }, // a limit holds when it is positive and lower
             { 20000, 7000, 1000, 0.4f, 6600, 6600 },
             { 20000, 7000, 1000, 0.4f, 6599, 6599 },
             { 20000, 7000, 1000, 0.4f, 1, 1 } })
    {
        unsigned offset = 99;
        const VectorXf window =
            extractEnergyWindow (impulse (size, place), static_cast<unsigned> (windowSize), apex, offset, limit);
        const auto moved = place - expected;
        EXPECT_EQ (expected, offset) << place << " " << limit;
        EXPECT_EQ (moved < windowSize ? impulse (windowSize, moved) : VectorXf (VectorXf::Zero (windowSize)), window);
    }
}

TEST (EnergyWindow, TheEnergyUnderTheTriangleDecides)
{
    // Two impulses too far apart for one window: the stronger one wins, wherever it is.
    VectorXf in = impulse (20000, 3000);
    in[12000] = -1.1f;
    unsigned offset = 0;
    extractEnergyWindow (in, 1000, 0.4f, offset, 0);
    EXPECT_EQ (11600u, offset);

    for (const VectorXf& nothing :
         { VectorXf (VectorXf::Zero (5000)), VectorXf (impulse (5000, 3000) * std::numeric_limits<float>::quiet_NaN()),
           VectorXf() })
    {
        offset = 99;
        EXPECT_EQ (1000, extractEnergyWindow (nothing, 1000, 0.4f, offset, 0).size());
        EXPECT_EQ (0u, offset);
    }

    EXPECT_EQ (0, extractEnergyWindow (impulse (10, 3), 0, 0.4f, offset, 0).size());
    EXPECT_THROW (EnergyWindow (0xffffffffu, 0.4f), std::bad_alloc);
}

}
