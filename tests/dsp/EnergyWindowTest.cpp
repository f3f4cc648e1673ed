// SPDX-License-Identifier: GPL-3.0-or-later
#include <limits>
#include <new>

#include <gtest/gtest.h>

#include "dsp/EnergyWindow.h"

namespace {

using Eigen::VectorXf;
using veltra::dsp::EnergyWindow;
using veltra::dsp::extractEnergyWindow;

VectorXf impulse (Eigen::Index size, Eigen::Index place) { return VectorXf::Unit (size, place); }

TEST (EnergyWindow, ALoneImpulseEndsUpAtTheApex)
{
    struct Case
    {
        Eigen::Index size, place, windowSize;
        float apex;
        int limit;
        unsigned offset;
    };

    for (const auto& c : { Case { 20000, 7000, 1000, 0.4f, 0, 6600 },
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
        const VectorXf window = extractEnergyWindow (impulse (c.size, c.place), static_cast<unsigned> (c.windowSize),
                                                     c.apex, offset, c.limit);
        const auto place = c.place - c.offset;
        EXPECT_EQ (c.offset, offset) << c.place << " " << c.limit;
        EXPECT_EQ (place < c.windowSize ? impulse (c.windowSize, place) : VectorXf (VectorXf::Zero (c.windowSize)),
                   window);
    }
}

TEST (EnergyWindow, TheEnergyUnderTheTriangleDecides)
{
    // Two impulses too far apart for one window: the stronger one wins, wherever it stands.
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
