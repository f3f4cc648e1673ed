// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/FIIRDesign.h"
#include "dsp/NumeratorFit.h"
#include "dsp/ParallelSections.h"
#include "dsp/ResidueFit.h"
#include "dsp/WarpedModes.h"
#include "dsp/WarpSequence.h"
#include "tests/support/ImpulseResponses.h"
#include "tests/support/Testing.h"

namespace {

using Eigen::Index;
using Eigen::VectorXd;
using Eigen::VectorXf;
using namespace veltra::dsp;
using test::Mode;
using Complex = std::complex<double>;

constexpr double sampleRate = 48000.0;
const double lambda = std::cos (std::acos (0.9) * 44100.0 / sampleRate);

void expectSection (const FIIRSection& expected, const FIIRSection& actual, float tolerance)
{
    EXPECT_NEAR (expected.a1, actual.a1, tolerance);
    EXPECT_NEAR (expected.a2, actual.a2, tolerance);
    EXPECT_NEAR (expected.b0, actual.b0, tolerance);
    EXPECT_NEAR (expected.b1, actual.b1, tolerance);
}

FIIRSection pairSection (const Complex& pole, const Complex& residue)
{
    return { static_cast<float> (-2.0 * pole.real()), static_cast<float> (std::norm (pole)),
             static_cast<float> (2.0 * residue.real()),
             static_cast<float> (-2.0 * (residue * std::conj (pole)).real()) };
}

/** Energy that a design misses behind its taps, in dB of the response's energy there. */
double error_dB (const VectorXf& response, const FIIRDesign& design)
{
    const VectorXd tail = response.tail (response.size() - design.fir.size()).cast<double>();
    return test::levelIn_dB (impulseResponse (design.sections, tail.size()) - tail, tail);
}

FIIRSection directSection (float gain) { return { 0.0f, 0.0f, gain, 0.0f }; }

TEST (FIIRDesign, TheFirstSamplesStayAndTheSectionsTakeOverWhereTheyEnd)
{
    VectorXf response (5000);
    response << test::whiteNoise (1000), test::modalResponse (4000, { { std::polar (0.99, 0.3), { 0.5, 0.2 } } });

    const FIIRDesign design = designFIIR (response, 1000, 2, sampleRate);
    EXPECT_EQ (response.head (1000), design.fir);
    ASSERT_EQ (2u, design.sections.size());

    EXPECT_LT (error_dB (response, design), -100.0);
}

TEST (FIIRDesign, AConjugatePairIsOneSectionAndTheDirectTermAnother)
{
    const Complex pole = std::polar (0.99, 0.3), residue (0.5, 0.2);
    VectorXf response = test::modalResponse (4000, { { pole, residue } });
    response[0] += 0.75f;

    const FIIRDesign design = designFIIR (response, 0, 2, sampleRate);
    expectSection (pairSection (pole, residue), design.sections[0], 1e-6f);
    expectSection (directSection (0.75f), design.sections[1], 1e-6f);
}

TEST (FIIRDesign, OneSectionIsTheFirstSampleOfTheTail)
{
    const FIIRDesign design = designFIIR (test::whiteNoise (300), 100, 1, sampleRate);
    EXPECT_EQ (std::vector { directSection (test::whiteNoise (300)[100]) }, design.sections);
}

TEST (FIIRDesign, RealPolesComeInPairsBehindTheComplexOnes)
{
    const Complex pole = std::polar (0.98, 0.2), residue (0.3, -0.4);
    const VectorXf response = test::modalResponse (4000, { { 0.995, 0.5 }, { pole, residue }, { 0.9, -0.25 } });

    const FIIRDesign design = designFIIR (response, 0, 3, sampleRate);
    expectSection (pairSection (pole, residue), design.sections[0], 1e-5f);
    expectSection ({ -1.895f, 0.995f * 0.9f, 0.25f, -(0.5f * 0.9f - 0.25f * 0.995f) }, design.sections[1], 1e-5f);
    expectSection (directSection (0.0f), design.sections[2], 1e-5f);
}

// The mode of the small pole is over after two samples; its weight makes it as strong as the other one. What is
// left after it has been dropped can only be the direct term.
TEST (FIIRDesign, APoleBelowTheFloorIsDroppedAndAnOddRealIsAlone)
{
    const FIIRDesign dropped =
        designFIIR (test::modalResponse (3000, { { 0.9, 1000.0 }, { 1e-7, 1e10 } }), 0, 2, sampleRate);
    expectSection ({ -0.9f, 0.0f, 1000.0f, 0.0f }, dropped.sections[0], 1e3f);
    EXPECT_NEAR (-0.9f, dropped.sections[0].a1, 0.1f);
    EXPECT_EQ (0.0f, dropped.sections[0].a2);
    EXPECT_EQ (0.0f, dropped.sections[0].b1);
    EXPECT_NEAR (1e10f, dropped.sections[1].b0, 1e5f);

    const FIIRDesign kept =
        designFIIR (test::modalResponse (3000, { { 0.9, 1000.0 }, { 1e-5, 1e8 } }), 0, 2, sampleRate);
    EXPECT_NEAR (-0.90001f, kept.sections[0].a1, 1e-6f);
    EXPECT_NEAR (0.9e-5f, kept.sections[0].a2, 1e-7f);
}

TEST (FIIRDesign, SlowPolesArePulledInWithTheirAngleKept)
{
    const FIIRDesign design = designFIIR (
        test::modalResponse (400000, { { std::polar (0.99995, 0.1), 0.5 }, { 0.99996, 0.5 }, { -0.5, 0.5 } }), 0, 3,
        sampleRate);
    // The response and the coefficients near 2 are both rounded to single precision.
    constexpr double roundings = 2.5e-7;
    const Complex pulledIn = std::polar (0.9999, 0.1);
    EXPECT_NEAR (-2.0 * pulledIn.real(), design.sections[0].a1, roundings);
    EXPECT_NEAR (std::norm (pulledIn), design.sections[0].a2, roundings);
    EXPECT_NEAR (-0.4999, design.sections[1].a1, roundings);
    EXPECT_NEAR (-0.49995, design.sections[1].a2, roundings);
}

// The warped response is made to measure, growing as far as the design looks at it, and then unwarped.
TEST (FIIRDesign, AGrowingModeIsAbsentAndLeavesAnEmptySection)
{
    const Complex inside = std::polar (0.9, 1.0);
    VectorXd warped = VectorXd::Zero (1100);
    warped.head (1023) = test::sumOfModes (1023, { { std::polar (1.002, 0.5), 0.1 }, { inside, 1.0 } });
    const VectorXf response = warpSequence (warped, 60000, -lambda).cast<float>();

    const FIIRDesign design = designFIIR (response, 0, 3, sampleRate);
    const Complex pole = (inside + lambda) / (1.0 + lambda * inside);
    EXPECT_NEAR (-2.0 * pole.real(), design.sections[0].a1, 1e-5);
    EXPECT_NEAR (std::norm (pole), design.sections[0].a2, 1e-5);
    EXPECT_EQ (directSection (design.sections[1].b0), design.sections[1]);
    EXPECT_EQ (FIIRSection {}, design.sections[2]);
}

TEST (FIIRDesign, SectionsWithAPoleOnTheUnitCircleOrBeyondAreUnstable)
{
    EXPECT_FALSE (isUnstableSection (0.0, 0.0));
    EXPECT_FALSE (isUnstableSection (-1.9998, 0.99980001)); // twice 0.9999
    EXPECT_FALSE (isUnstableSection (0.0, 0.9999));
    EXPECT_TRUE (isUnstableSection (0.0, 1.0));
    EXPECT_TRUE (isUnstableSection (-1.0, 0.0));
    EXPECT_TRUE (isUnstableSection (-1.5, 0.5)); // 1 and 0.5
    EXPECT_TRUE (isUnstableSection (1.5, 0.5));
    EXPECT_TRUE (isUnstableSection (-1.9998, 0.9997));
}

bool isStable (const FIIRSection& section) { return ! isUnstableSection (section.a1, section.a2); }

// With coefficients as rounded, two poles near the point 1 can come out with one of them on the unit circle.
TEST (FIIRDesign, NoSectionIsUnstable)
{
    std::mt19937 generator (1);
    std::uniform_real_distribution<double> distance (1e-4, 4e-4), angle (0.0, 4e-4);
    int pulledIn = 0;

    for (int i = 0; i < 20000; ++i)
    {
        const double p1 = 1.0 - distance (generator), p2 = 1.0 - distance (generator);
        const Poles poles { { std::polar (p1, angle (generator)) }, { p1, p2 } };
        const auto sections = parallelSections (poles, { { 1.0 }, { 0.5, -0.25 }, 0.0 }, 3);
        ASSERT_TRUE (isStable (sections[0]) && isStable (sections[1])) << p1 << " " << p2;

        // What rounding leaves stable stays as it is.
        const float a1 = static_cast<float> (-(p2 + p1)), a2 = static_cast<float> (p2 * p1);
        const bool stays = sections[1].a1 == a1 && sections[1].a2 == a2;
        ASSERT_EQ (! isUnstableSection (a1, a2), stays) << p1 << " " << p2;
        pulledIn += stays ? 0 : 1;
    }

    EXPECT_GT (pulledIn, 100);
}

/** By sample rate. */
using LivingRoomDesigns = testing::TestWithParam<int>;

TEST_P (LivingRoomDesigns, AreStableAndRefittedNumeratorsAreNoWorse)
{
    for (const char* channel : { "FL", "FR", "C", "SW", "SL", "SR", "BL", "BR" })
    {
        const auto name = channel + ("_" + std::to_string (GetParam()));
        const VectorXf response = test::livingRoom (name);
        const auto design = designFIIR (response, static_cast<unsigned> (GetParam()) / 48, 30, GetParam());
        const auto refitted = refitNumerators (response, design);
        EXPECT_TRUE (std::all_of (design.sections.begin(), design.sections.end(), isStable)) << name;
        EXPECT_LE (error_dB (response, refitted), std::min (error_dB (response, design), -43.0)) << name;

        for (std::size_t i = 0; i < design.sections.size(); ++i)
        {
            EXPECT_EQ (design.sections[i].a1, refitted.sections[i].a1);
            EXPECT_EQ (design.sections[i].a2, refitted.sections[i].a2);
        }
    }
}

INSTANTIATE_TEST_SUITE_P (FIIRDesign, LivingRoomDesigns, testing::Values (44100, 48000, 96000));

/** The figures of the design's plainest form (see docs/fiir-design.md), and better ones where rounding chooses the modes.
    Beyond -100 dB a fit is as good as exact. */
TEST (FIIRDesign, ErrorsDoNotGrow)
{
    const auto expectError = [] (double bound_dB, const VectorXf& response, unsigned taps = 0, unsigned sections = 30,
                                 double rate = sampleRate) {
        const auto design = designFIIR (response, taps, sections, rate);
        EXPECT_LE (error_dB (response, design), bound_dB + 0.1) << response.size() << " samples";
        EXPECT_EQ (sections, design.sections.size());
    };
    const auto closeModes = test::modalResponse (
        6000, { { std::polar (0.998, 0.1), { 0.5, 0.2 } }, { std::polar (0.998, 0.1005), { -0.3, 0.2 } } });
    const double unwarped = std::acos (0.9) * 44100.0 / std::acos (0.0); // a rate whose warp factor is zero

    expectError (-37.3, test::livingRoom ("FL_48000").head (4000), 1000);
    expectError (-39.2, test::livingRoom ("C_44100"), 918, 30, 44100.0);
    expectError (-39.6, test::livingRoom ("FL_48000"), 1000);
    expectError (-27.0, test::livingRoom ("SW_96000"), 2000, 30, 96000.0);
    expectError (-91.1, closeModes);
    expectError (-93.7, closeModes, 0, 3);
    expectError (-100.0, test::modalResponse (3000, { { 0.99, 0.5 } }));
    expectError (-100.0, test::modalResponse (3000, { { 0.5, 1.0 } })); // an exponential that nothing rounds
    expectError (-100.0, test::modalResponse (3000, { { -0.5, 1.0 } }), 0, 30, unwarped);

    for (const auto& [size, bound_dB] : { std::pair (1, -100.0), { 10, -34.4 }, { 40, -7.1 }, { 3000, -0.2 } })
        expectError (bound_dB, test::whiteNoise (size));

    for (const auto& [place, bound_dB] : { std::pair (0, -100.0), { 1, -24.2 }, { 2, -23.8 }, { 5, -2.4 } })
        expectError (bound_dB, test::impulse (3000, place));

    EXPECT_EQ (std::vector<FIIRSection> (30), designFIIR (VectorXf::Zero (3000), 100, 30, sampleRate).sections);
}

TEST (FIIRDesign, NothingIsWorseThanSilence)
{
    // Modes so slow at so high a rate that the coefficients' rounding outweighs their distance from 1.
    constexpr double rate = 192000.0;
    constexpr unsigned sections = 8;
    std::vector<Mode> modes;

    for (const auto& [frequency_Hz, decay_per_s, weight, phase] :
         { std::array { 0.3, 17.8, 0.0163, 3.77 }, std::array { 0.857, 9.12, 0.0265, 6.16 },
           std::array { 2.45, 5.20, 0.0145, 0.44 }, std::array { 7.0, 2.13, 0.0679, 2.43 },
           std::array { 20.0, 0.45, 0.1263, 3.44 } })
        modes.push_back ({ std::polar (std::exp (-decay_per_s / rate), 2.0 * M_PI * frequency_Hz / rate),
                           std::polar (weight / 2.0, phase) });

    const VectorXf response = test::modalResponse (192000, modes);
    const VectorXd tail = response.cast<double>();
    const double warping = std::cos (std::acos (0.9) * 44100.0 / rate);
    const auto found =
        findModes (warpSequence (tail, modeSpan + 2, warping), 2 * sections - 2, HankelDecomposition::symmetric);
    const Poles poles = unwarpPoles (found.eigenvalues, warping);
    const ResidueFit fit (poles, tail);
    const auto plain = parallelSections (poles, fit.solve (0.0), sections);
    EXPECT_TRUE (found.wellDetermined && fit.reciprocalCondition() > 1e-6)
        << "nothing else gives reason to look further";
    EXPECT_GT (test::levelIn_dB (impulseResponse (plain, tail.size()) - tail, tail), 40.0);

    const auto design = designFIIR (response, 0, sections, rate);
    EXPECT_LE (error_dB (response, design), 0.0);
    EXPECT_LE (error_dB (response, refitNumerators (response, design)), error_dB (response, design));
}

TEST (FIIRDesign, ConditionsThatAreNotMetAreNamed)
{
    const VectorXf response = test::whiteNoise (1000);
    const auto words = [] (const VectorXf& in, unsigned taps, unsigned sections, double rate) {
        return thrownBy<std::invalid_argument> ([&] { designFIIR (in, taps, sections, rate); });
    };

    EXPECT_EQ ("the response has 1000 samples, which does not exceed the 1000 taps to keep",
               words (response, 1000, 2, 48000.0));
    EXPECT_EQ ("the response has 0 samples, which does not exceed the 0 taps to keep", words ({}, 0, 2, 48000.0));
    EXPECT_NE ("", words (response, std::numeric_limits<unsigned>::max(), 2, 48000.0));
    EXPECT_EQ ("cannot design 0 sections, only 1 to 256", words (response, 0, 0, 48000.0));
    EXPECT_EQ ("cannot design 257 sections, only 1 to 256", words (response, 0, 257, 48000.0));

    for (const double rate : { 0.0, -48000.0, std::nan (""), HUGE_VAL })
        EXPECT_EQ ("the sample rate is not a positive number", words (response, 0, 2, rate)) << rate;

    for (const float bad : { std::nanf (""), HUGE_VALF })
        for (const Index place : { 5, 500, 999 })
        {
            VectorXf spoilt = response;
            spoilt[place] = bad;
            EXPECT_EQ ("the response has samples that are not finite numbers", words (spoilt, 100, 2, 48000.0))
                << place;
        }
}

}
