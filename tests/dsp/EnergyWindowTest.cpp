#include <cmath>
#include <limits>
#include <new>

#include <gtest/gtest.h>

#include "dsp/EnergyWindow.h"

namespace {

using Eigen::VectorXf;
using veltra::dsp::EnergyWindow;
using veltra::dsp::extractEnergyWindow;

VectorXf impulse (Eigen::Index size, Eigen::Index place)
{
    VectorXf result = VectorXf::Zero (size);
    result[place] = 1.0f;
    return result;
}

TEST (EnergyWindow, ALoneImpulseEndsUpAtTheApex)
{
    unsigned offset = 0;
    const VectorXf window = extractEnergyWindow (impulse (20000, 7000), 1000, 0.4f, offset, 0);
    EXPECT_EQ (6600u, offset);
    EXPECT_EQ (impulse (1000, 400), window);
}

TEST (EnergyWindow, AnEarlyImpulseKeepsItsPlace)
{
    unsigned offset = 99;
    EXPECT_EQ (impulse (1000, 399), extractEnergyWindow (impulse (20000, 399), 1000, 0.4f, offset, 0));
    EXPECT_EQ (0u, offset);
}

TEST (EnergyWindow, TheLimitHoldsOnlyWhenItIsPositiveAndLower)
{
    for (const auto& [limit, expected] : { std::pair { 0, 6600u }, { -1, 6600u }, { 6600, 6600u }, { 6599, 6599u }, { 1, 1u } })
    {
        unsigned offset = 0;
        const VectorXf window = extractEnergyWindow (impulse (20000, 7000), 1000, 0.4f, offset, limit);
        EXPECT_EQ (expected, offset);
        EXPECT_EQ (expected >= 6001u ? 1.0f : 0.0f, window.sum()) << limit;
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
}

TEST (EnergyWindow, AnApexAtTheFirstSampleFallsOnly)
{
    unsigned offset = 99;
    EXPECT_EQ (impulse (100, 0), extractEnergyWindow (impulse (1000, 300), 100, 0.0f, offset, 0));
    EXPECT_EQ (300u, offset);
}

TEST (EnergyWindow, WhatLiesBeyondTheResponseIsZero)
{
    unsigned offset = 99;
    EXPECT_EQ (impulse (1000, 400), extractEnergyWindow (impulse (7001, 7000), 1000, 0.4f, offset, 0));
    EXPECT_EQ (6600u, offset);
    EXPECT_EQ (impulse (1000, 3), extractEnergyWindow (impulse (4, 3), 1000, 0.4f, offset, 0));
    EXPECT_EQ (0u, offset);
    EXPECT_EQ (VectorXf (VectorXf::Zero (10)), extractEnergyWindow (VectorXf(), 10, 0.4f, offset, 0));
    EXPECT_EQ (0, extractEnergyWindow (impulse (10, 3), 0, 0.4f, offset, 0).size());
}

TEST (EnergyWindow, SilenceAndNotANumberGiveOffsetZero)
{
    unsigned offset = 99;
    extractEnergyWindow (VectorXf::Zero (5000), 1000, 0.4f, offset, 0);
    EXPECT_EQ (0u, offset);

    offset = 99;
    extractEnergyWindow (impulse (5000, 3000) * std::numeric_limits<float>::quiet_NaN(), 1000, 0.4f, offset, 0);
    EXPECT_EQ (0u, offset);
}

TEST (EnergyWindow, AKeptWindowGivesTheSameAsOneMadeForTheCall)
{
    EnergyWindow kept (512, 0.4f);

    for (const int size : { 3000, 5000, 3000 })
    {
        const VectorXf in = VectorXf::NullaryExpr (size, [] (Eigen::Index i) { return std::sin (0.01f * float (i) * float (i % 1999)); });
        unsigned keptOffset = 0, offset = 0;
        EXPECT_EQ (extractEnergyWindow (in, 512, 0.4f, offset, 2000), kept.extract (in, keptOffset, 2000));
        EXPECT_EQ (offset, keptOffset);
    }

    EXPECT_THROW (EnergyWindow (0xffffffffu, 0.4f), std::bad_alloc);
}

}
