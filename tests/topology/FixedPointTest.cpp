// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "topology/FixedPoint.h"

namespace {

using veltra::topology::fromFixed;
using veltra::topology::toFixed;

constexpr int tapBits = 29;

/** The word, with the clip count in front: 1 in the upper half means clipped. */
std::uint64_t convert (float value, int bits = tapBits)
{
    int clips = 0;
    const std::uint32_t word = toFixed (value, bits, clips);
    return std::uint64_t (clips) << 32 | word;
}

constexpr std::uint64_t clipped (std::uint32_t word) { return std::uint64_t { 1 } << 32 | word; }

TEST (FixedPoint, OrdinaryValuesAreRoundedToTheNearestWord)
{
    EXPECT_EQ (0u, convert (0.0f));
    EXPECT_EQ (0u, convert (-0.0f));
    EXPECT_EQ (0x20000000u, convert (1.0f));
    EXPECT_EQ (0xE0000000u, convert (-1.0f));
    EXPECT_EQ (0x7FFF2E80u, convert (3.9999f));
    EXPECT_EQ (1u, convert (std::ldexp (0.5f, -tapBits))); // halves go up
    EXPECT_EQ (0u, convert (std::ldexp (-0.5f, -tapBits)));
    EXPECT_EQ (0xFFFFFFFFu, convert (std::ldexp (-0.75f, -tapBits)));
    EXPECT_EQ (0x00800000u, convert (1.0f, 23));
    EXPECT_EQ (0x00400000u, convert (0.5f, 23));
}

TEST (FixedPoint, TheLowBitsAreThoseOfSinglePrecision)
{
    // 0.1 as a float, times 2^29, is 53687092 exactly; in double precision 0.1 would give 53687091.
    EXPECT_EQ (53687092u, convert (0.1f));

    // Adding the half is itself rounded: 8388609 + 0.5 lies between two floats and goes to the even one.
    EXPECT_EQ (8388610u, convert (std::ldexp (8388609.0f, -tapBits)));
}

TEST (FixedPoint, BothEndsCountOnlyBeyondThemAndNoNumberIsZero)
{
    EXPECT_EQ (0x7FFFFF80u, convert (std::nextafter (4.0f, 0.0f)));
    EXPECT_EQ (0x80000000u, convert (4.0f));
    EXPECT_EQ (clipped (0x80000000u), convert (std::nextafter (4.0f, 5.0f)));
    EXPECT_EQ (clipped (0x80000000u), convert (std::numeric_limits<float>::max()));
    EXPECT_EQ (clipped (0x80000000u), convert (std::numeric_limits<float>::infinity()));
    EXPECT_EQ (0x80000000u, convert (256.0f, 23));

    EXPECT_EQ (0x80000000u, convert (-4.0f));
    EXPECT_EQ (clipped (0x80000000u), convert (std::nextafter (-4.0f, -5.0f)));
    EXPECT_EQ (clipped (0x80000000u), convert (-std::numeric_limits<float>::infinity()));
    EXPECT_EQ (clipped (0), convert (std::numeric_limits<float>::quiet_NaN()));
}

TEST (FixedPoint, WordsReadBackAsTheValuesTheyStandFor)
{
    for (const float value : { 0.0f, 1.0f, -1.0f, 0.1f, -0.0123f, 3.9999f, -4.0f, 1e-9f })
        EXPECT_NEAR (value, fromFixed (static_cast<std::uint32_t> (convert (value)), tapBits),
                     std::ldexp (1.0, -tapBits))
            << value;

    EXPECT_EQ (-4.0f, fromFixed (0x80000000u, tapBits));
    EXPECT_EQ (0.5f, fromFixed (0x00400000u, 23));
}

}
