// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/ResponseError.h"
#include "tests/support/Testing.h"

namespace {

using Eigen::VectorXf;
using veltra::dsp::compareResponses;

/** A tone under a Hann window, which keeps its energy within a few hertz. */
VectorXf tone (double frequency, double level)
{
    return VectorXf::NullaryExpr (48000, [=] (Eigen::Index i) {
        const double time = double (i) / 48000.0;
        return float (level * std::sin (std::numbers::pi * time)
                      * std::sin (2.0 * std::numbers::pi * frequency * time));
    });
}

TEST (ResponseError, AScaleOfOnePercentIsMinusFortyDecibelsInEveryBand)
{
    const VectorXf wanted = VectorXf::Unit (1000, 500);
    VectorXf played = VectorXf::Zero (1400);
    played.segment (300, 1000) = 1.01f * wanted;

    const auto error = compareResponses (wanted, played, 300, 48000.0);
    EXPECT_NEAR (-40.0, error.overall_dB, 0.01);
    ASSERT_EQ (11u, error.octaves.size()); // 15.625 Hz to 16 kHz

    for (const auto& band : error.octaves)
        EXPECT_NEAR (-40.0, band.error_dB, 0.01) << band.centre_Hz;

    // In each, the played magnitude is 1.01 times the wanted one, which is 1.
    for (const auto& band : error.curve)
    {
        EXPECT_NEAR (-40.0, band.error_dB, 0.01) << band.centre_Hz;
        EXPECT_NEAR (0.0, band.wanted_dB, 1e-4) << band.centre_Hz;
        EXPECT_NEAR (20.0 * std::log10 (1.01), band.played_dB, 1e-4) << band.centre_Hz;
    }

    EXPECT_EQ (539u, error.curve.size()); // 48 an octave from 10 Hz up to 24 kHz
    EXPECT_EQ (48000.0 / 2048.0, error.resolution_Hz);

    // An impulse is white: an octave has twice the energy of the one below it. The top one ends at 22.6 kHz.
    EXPECT_NEAR (3.0, error.octaves[9].level_dB - error.octaves[8].level_dB, 0.1);
    EXPECT_NEAR (10.0 * std::log10 (11.314 / 24.0), error.octaves[10].level_dB, 0.1);
}

TEST (ResponseError, AnErrorIsSeenInItsOwnBandOnly)
{
    const VectorXf wanted = tone (1000.0, 1.0) + tone (4000.0, 1.0);
    const auto error = compareResponses (wanted, wanted + tone (4000.0, 0.001), 0, 48000.0);
    EXPECT_NEAR (-63.0, error.overall_dB, 0.1);

    for (const auto& band : error.octaves)
    {
        if (band.centre_Hz == 4000.0)
            EXPECT_NEAR (-60.0, band.error_dB, 0.1);
        else if (band.centre_Hz == 1000.0)
            EXPECT_LT (band.error_dB, -100.0);
        else
            EXPECT_LT (band.level_dB, -60.0) << band.centre_Hz;
    }
}

TEST (ResponseError, WhatIsMissingOrInExcessCountsWhereverItLies)
{
    const VectorXf wanted = VectorXf::Unit (10, 3);
    EXPECT_NEAR (0.0, compareResponses (wanted, VectorXf(), 5, 48000.0).overall_dB, 1e-9);
    EXPECT_NEAR (0.0,
                 compareResponses (wanted, VectorXf::Unit (100, 8) + VectorXf::Unit (100, 99), 5, 48000.0).overall_dB,
                 1e-9);
    EXPECT_NEAR (
        0.0, compareResponses (wanted, VectorXf::Unit (100, 8) + VectorXf::Unit (100, 0), 5, 48000.0).overall_dB, 1e-9);
    EXPECT_EQ (-std::numeric_limits<double>::infinity(),
               compareResponses (wanted, VectorXf::Unit (100, 8), 5, 48000.0).overall_dB);
    EXPECT_EQ (std::numeric_limits<double>::infinity(), compareResponses (VectorXf(), wanted, 5, 48000.0).overall_dB);
    EXPECT_TRUE (compareResponses (wanted, VectorXf::Zero (20), 5, 48000.0).isSilent);
    EXPECT_FALSE (compareResponses (VectorXf::Zero (20), wanted, 5, 48000.0).isSilent);
}

}
