// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>

#include <gtest/gtest.h>

#include "tools/veltra/report/DesignReport.h"

namespace veltra::host {

namespace {

/** A design whose parts are known: taps that are a decaying tone, and no sections. */
dsp::FIIRDesign tone (float gain)
{
    return { Eigen::VectorXf::NullaryExpr (1000,
                                           [gain] (Eigen::Index i) {
                                               return gain * std::exp (-0.02f * static_cast<float> (i))
                                                      * std::cos (0.13f * static_cast<float> (i));
                                           }),
             {} };
}

TEST (DesignReport, TellsHowFarADesignIsOffOverallAndInEachOctave)
{
    const auto wanted = tone (1.0f), tenPercentMore = tone (1.1f);
    const auto report = examineDesign (std::span (wanted.fir.data(), 1000), tenPercentMore, 48000);

    EXPECT_NEAR (-20.0, report.error_dB, 1e-3);
    ASSERT_EQ (10u, report.octaves.size());
    EXPECT_EQ ("31", octaveName (report.octaves.front().frequency));
    EXPECT_EQ ("16k", octaveName (report.octaves.back().frequency));

    for (const auto& octave : report.octaves)
    {
        EXPECT_NEAR (-20.0, octave.error_dB, 0.01) << octave.frequency;
        EXPECT_NEAR (20.0 * std::log10 (1.1), octave.designed_dB - octave.wanted_dB, 0.01) << octave.frequency;
    }

    // The tone lies at 993 Hz.
    for (const auto& octave : report.octaves)
        EXPECT_LE (octave.wanted_dB, report.octaves[5].wanted_dB);
}

TEST (DesignReport, WhatRingsOnBehindTheResponseIsAnError)
{
    auto design = tone (1.0f);
    const auto wanted = design.fir;
    EXPECT_LT (examineDesign (std::span (wanted.data(), 1000), design, 48000).error_dB, -150.0);

    design.sections = { { -0.5f, 0.0f, 0.01f, 0.0f }, { 0.0f, 0.81f, 0.0f, 0.0f } };
    const auto report = examineDesign (std::span (wanted.data(), 1000), design, 48000);
    EXPECT_NEAR (10.0 * std::log10 (1e-4 / 0.75 / wanted.cast<double>().squaredNorm()), report.error_dB, 0.01);
    EXPECT_NEAR (0.9, report.poleRadius, 1e-6);
}

}

}
