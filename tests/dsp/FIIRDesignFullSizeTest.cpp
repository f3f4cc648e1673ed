// SPDX-License-Identifier: GPL-3.0-or-later
#include <string>

#include "tests/dsp/DesignComparison.h"

namespace {

using namespace veltra::dsp::test;

class LivingRoomInFull : public testing::TestWithParam<const char*>
{
};

TEST_P (LivingRoomInFull, Agrees)
{
    const std::string name = GetParam();
    const double sampleRate = std::stod (name.substr (name.find ('_') + 1));
    expectAgreement (livingRoom (name), static_cast<unsigned> (sampleRate) / 48, 30, sampleRate);
}

INSTANTIATE_TEST_SUITE_P (, LivingRoomInFull,
                          testing::Values ("BL_44100", "BR_44100", "C_44100", "FL_44100", "FR_44100", "SL_44100",
                                           "SR_44100", "SW_44100", "BL_48000", "BR_48000", "C_48000", "FL_48000",
                                           "FR_48000", "SL_48000", "SR_48000", "SW_48000", "BL_96000", "BR_96000",
                                           "C_96000", "FL_96000", "FR_96000", "SL_96000", "SR_96000", "SW_96000"));

TEST (FIIRDesignInFull, OneSecondOfNoiseAgrees) { expectAgreement (whiteNoise (48000), 1000, 30, 48000.0); }

TEST (FIIRDesignInFull, LongModesAgree)
{
    expectAgreement (closeModes (48000), 0, 30, 48000.0);

    // Two real poles near 1 in one section: single-precision coefficients leave either design a poor fit.
    expectNoWorseFit (modalResponse (48000, { { 0.9995, 0.5 } }), 30, 48000.0);
    expectNoWorseFit (modalResponse (100000, { { 0.99995, 0.5 }, { 0.999, -0.3 } }), 2, 48000.0);
}

TEST (FIIRDesignInFull, ImpulsesAnywhereFitNoWorse)
{
    for (const Eigen::Index place : { 20, 100, 511, 700, 1023, 2500 })
        expectNoWorseFit (impulse (3000, place), 30, 48000.0);

    // Every singular value is 1, or there are none but the place's.
    for (const Eigen::Index place : { 1, 20, 255, 511, 600, 1022, 1024 })
        expectNoWorseFit (impulse (3000, place), 30, unwarpedRate);
}

TEST (FIIRDesignInFull, PurePolesFitNoWorse)
{
    for (const double pole : { -1.0, -0.91537, -0.9, 0.25, 0.9, 0.91537, 0.9999, 1.0 })
        expectNoWorseFit (modalResponse (3000, { { pole, 0.5 } }), 30, 48000.0);

    for (const double pole : { -0.5, 0.5, 0.9, 0.999 })
        expectNoWorseFit (modalResponse (20000, { { pole, 0.5 } }), 30, unwarpedRate);

    expectNoWorseFit (modalResponse (3000, { { 0.5, 0.5 }, { 0.25, 0.5 } }), 30, 48000.0);
    expectNoWorseFit (modalResponse (20000, { { 0.99995, 0.5 }, { 0.99997, -0.3 } }), 30, 48000.0);
}

TEST (FIIRDesignInFull, BurstsTonesAndTrainsFitNoWorse)
{
    for (const Eigen::Index length : { 20, 300 })
    {
        Eigen::VectorXf burst = Eigen::VectorXf::Zero (5000);
        burst.head (length) = whiteNoise (length);
        expectNoWorseFit (burst, 30, 48000.0);
        expectNoWorseFit (burst.head (length), 30, 48000.0);
    }

    const auto made = [] (auto&& sample) { return Eigen::VectorXf::NullaryExpr (5000, sample).eval(); };
    expectNoWorseFit (made ([] (Eigen::Index i) { return std::sin (0.05f * static_cast<float> (i)); }), 30, 48000.0);
    expectNoWorseFit (made ([] (Eigen::Index i) { return static_cast<float> (i); }), 30, 48000.0);
    expectNoWorseFit (made ([] (Eigen::Index i) { return std::pow (1.001f, static_cast<float> (i)); }), 30, 48000.0);

    for (const Eigen::Index period : { 8, 64, 128 })
        expectNoWorseFit (made ([=] (Eigen::Index i) { return i % period == 0 ? 1.0f : 0.0f; }), 30, unwarpedRate);
}

TEST (FIIRDesignInFull, TheScaleOfTheNumbersDoesNotMatter)
{
    expectNoWorseFit (whiteNoise (3000) * 1e-38f, 30, 48000.0);
    expectNoWorseFit (whiteNoise (3000) * 1e37f, 30, 48000.0);
}

}
