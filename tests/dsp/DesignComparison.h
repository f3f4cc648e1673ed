// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "dsp/FIIRDesign.h"
#include "dsp/ParallelSections.h"
#include "tests/support/ImpulseResponses.h"
#include "tests/support/ReferenceFIIRDesign.h"

/** @file The shipped design against the straightforward one, whose decompositions take seconds each. */

namespace veltra::dsp::test {

/** A sample rate at which the warp factor is zero to all digits, so that the tail itself fills the matrices. */
inline const double unwarpedRate = std::acos (0.9) * 44100.0 / std::acos (0.0);

/** The two must agree to 100 dB below the energy of what the sections model. */
inline void expectAgreement (const Eigen::VectorXf& in, unsigned nTaps, unsigned nSections, double sampleRate)
{
    ASSERT_GT (in.size(), nTaps);
    const FIIRDesign expected = reference::designFIIR (in, nTaps, nSections, sampleRate);
    const FIIRDesign actual = designFIIR (in, nTaps, nSections, sampleRate);
    EXPECT_EQ (expected.fir, actual.fir);

    const Eigen::VectorXd tail = in.tail (in.size() - nTaps).cast<double>();
    const Eigen::VectorXd difference =
        impulseResponse (actual.sections, tail.size()) - impulseResponse (expected.sections, tail.size());
    EXPECT_LT (levelIn_dB (difference, tail), -100.0);
}

/** Where the modes are partly rounding, the two have no reason to agree; what ships must be as good. Beyond 100 dB
    below the tail a fit is as good as exact. */
inline void expectNoWorseFit (const Eigen::VectorXf& tail, unsigned nSections, double sampleRate)
{
    const FIIRDesign expected = reference::designFIIR (tail, 0, nSections, sampleRate);
    const FIIRDesign actual = designFIIR (tail, 0, nSections, sampleRate);

    const Eigen::VectorXd wanted = tail.cast<double>();
    const double expectedError = levelIn_dB (impulseResponse (expected.sections, tail.size()) - wanted, wanted);
    const double actualError = levelIn_dB (impulseResponse (actual.sections, tail.size()) - wanted, wanted);
    ASSERT_EQ (nSections, actual.sections.size());
    EXPECT_LE (actualError, std::max (expectedError + 0.1, -100.0));
}

/** Two modes nearer to each other than their bandwidths. */
inline Eigen::VectorXf closeModes (Eigen::Index size)
{
    return modalResponse (size,
                          { { std::polar (0.998, 0.1), { 0.5, 0.2 } }, { std::polar (0.998, 0.1005), { -0.3, 0.2 } } });
}

}
