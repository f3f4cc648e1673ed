// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "dsp/FIIRDesign.h"
#include "tests/support/ImpulseResponses.h"
#include "tests/support/ReferenceFIIRDesign.h"

/** @file The shipped design against the straightforward one, whose decompositions take seconds each. */

namespace {

using namespace veltra::dsp;
using namespace veltra::dsp::test;
using Eigen::Index;
using Eigen::VectorXd;
using Eigen::VectorXf;

/** A sample rate at which the warp factor is zero to all digits, so that the tail itself fills the matrices. */
const double unwarpedRate = std::acos (0.9) * 44100.0 / std::acos (0.0);

/** The two must agree to 100 dB below the energy of what the sections model. */
void expectAgreement (const VectorXf& in, unsigned nTaps, unsigned nSections, double sampleRate)
{
    ASSERT_GT (in.size(), nTaps);
    const FIIRDesign expected = reference::designFIIR (in, nTaps, nSections, sampleRate);
    const FIIRDesign actual = designFIIR (in, nTaps, nSections, sampleRate);
    EXPECT_EQ (expected.fir, actual.fir);

    const VectorXd tail = in.tail (in.size() - nTaps).cast<double>();
    const VectorXd difference =
        impulseResponse (actual.sections, tail.size()) - impulseResponse (expected.sections, tail.size());
    EXPECT_LT (levelIn_dB (difference, tail), -100.0);
}

/** Where the modes are partly rounding, the two have no reason to agree; what ships must be as good. Beyond 100 dB
    below the tail a fit is as good as exact. */
void expectNoWorseFit (const VectorXf& tail, double sampleRate = 48000.0, unsigned nSections = 30)
{
    const VectorXd wanted = tail.cast<double>();
    const auto error_dB = [&] (const FIIRDesign& design) {
        return levelIn_dB (impulseResponse (design.sections, tail.size()) - wanted, wanted);
    };

    const FIIRDesign actual = designFIIR (tail, 0, nSections, sampleRate);
    ASSERT_EQ (nSections, actual.sections.size());
    EXPECT_LE (error_dB (actual),
               std::max (error_dB (reference::designFIIR (tail, 0, nSections, sampleRate)) + 0.1, -100.0));
}

TEST (FIIRDesignAgainstReference, AgreesWhereTheResponseDeterminesTheModes)
{
    const auto closeModes = [] (Index size) {
        return modalResponse (
            size, { { std::polar (0.998, 0.1), { 0.5, 0.2 } }, { std::polar (0.998, 0.1005), { -0.3, 0.2 } } });
    };

    expectAgreement (livingRoom ("FL_48000").head (4000), 1000, 30, 48000.0);
    expectAgreement (modalResponse (3000, { { 0.99, 0.5 } }), 0, 30, 48000.0);
    expectAgreement (closeModes (6000), 0, 30, 48000.0);
    expectAgreement (closeModes (6000), 0, 3, 48000.0);
    expectAgreement (whiteNoise (3000), 0, 30, 48000.0);
}

TEST (FIIRDesignAgainstReference, FitsNoWorseWhereRoundingDoes)
{
    EXPECT_EQ (std::vector<FIIRSection> (30), designFIIR (VectorXf::Zero (3000), 100, 30, 48000.0).sections);

    for (const Index samples : { 1, 10, 40 }) // fewer than modes
        expectNoWorseFit (whiteNoise (samples));

    for (const Index place : { 0, 1, 2, 5 })
        expectNoWorseFit (impulse (3000, place));

    expectNoWorseFit (modalResponse (3000, { { 0.5, 1.0 } })); // an exponential that nothing rounds
    expectNoWorseFit (modalResponse (3000, { { -0.5, 1.0 } }), unwarpedRate);
}

TEST (FIIRDesignAgainstReference, TheLivingRoomAgreesInFull)
{
    expectAgreement (livingRoom ("C_44100"), 44100 / 48, 30, 44100.0);
    expectAgreement (livingRoom ("FL_48000"), 1000, 30, 48000.0);
    expectAgreement (livingRoom ("SW_96000"), 2000, 30, 96000.0);
}

TEST (FIIRDesignAgainstReference, FitsNoWorseInFull)
{
    // Two real poles near 1 in one section: single-precision coefficients leave either design a poor fit.
    expectNoWorseFit (modalResponse (48000, { { 0.9995, 0.5 } }));
    expectNoWorseFit (modalResponse (100000, { { 0.99995, 0.5 }, { 0.999, -0.3 } }), 48000.0, 2);

    for (const Index place : { 20, 511, 1023, 2500 })
        expectNoWorseFit (impulse (3000, place));

    // Every singular value is 1, or there are none but the place's.
    for (const Index place : { 1, 255, 511, 1022, 1024 })
        expectNoWorseFit (impulse (3000, place), unwarpedRate);

    for (const double pole : { -1.0, -0.91537, 0.25, 0.91537, 0.9999, 1.0 })
        expectNoWorseFit (modalResponse (3000, { { pole, 0.5 } }));

    for (const Index length : { 20, 300 })
    {
        VectorXf burst = VectorXf::Zero (5000);
        burst.head (length) = whiteNoise (length);
        expectNoWorseFit (burst);
        expectNoWorseFit (burst.head (length));
    }

    const auto made = [] (auto&& sample) { return VectorXf::NullaryExpr (5000, sample).eval(); };
    expectNoWorseFit (made ([] (Index i) { return std::sin (0.05f * static_cast<float> (i)); }));
    expectNoWorseFit (made ([] (Index i) { return std::pow (1.001f, static_cast<float> (i)); }));
    expectNoWorseFit (made ([] (Index i) { return i % 64 == 0 ? 1.0f : 0.0f; }), unwarpedRate);

    expectNoWorseFit (whiteNoise (3000) * 1e-38f); // the scale does not matter
    expectNoWorseFit (whiteNoise (3000) * 1e37f);
}

}
