// SPDX-License-Identifier: GPL-3.0-or-later

#include "filters/FIIREngine.h"
#include "tests/support/Testing.h"

namespace {

using veltra::dsp::FIIRSection;
using veltra::filters::FIIREngine;

/** The definition, term by term, in extended precision. */
std::vector<long double> reference (const Eigen::VectorXf& taps, const std::vector<FIIRSection>& sections,
                                    const Eigen::VectorXf& x)
{
    std::vector<long double> y (static_cast<size_t> (x.size()));
    const auto delayed = [&] (Eigen::Index n) {
        return n < taps.size() ? 0.0L : static_cast<long double> (x[n - taps.size()]);
    };

    for (Eigen::Index n = 0; n < x.size(); ++n)
        for (Eigen::Index k = 0; k < taps.size() && k <= n; ++k)
            y[static_cast<size_t> (n)] += static_cast<long double> (taps[k]) * x[n - k];

    for (const auto& section : sections)
    {
        long double s1 = 0.0L, s2 = 0.0L;

        for (Eigen::Index n = 0; n < x.size(); ++n)
        {
            const auto s = section.b0 * delayed (n) + (n > 0 ? section.b1 * delayed (n - 1) : 0.0L) - section.a1 * s1
                           - section.a2 * s2;
            y[static_cast<size_t> (n)] += s;
            s2 = s1;
            s1 = s;
        }
    }

    return y;
}

/** A section with poles of the given radius and angle. */
FIIRSection resonance (double radius, double angle, float b0, float b1)
{
    return { static_cast<float> (-2.0 * radius * std::cos (angle)), static_cast<float> (radius * radius), b0, b1 };
}

Eigen::VectorXf filtered (const Eigen::VectorXf& taps, const std::vector<FIIRSection>& sections, Eigen::VectorXf signal)
{
    FIIREngine engine;
    engine.setTaps (taps);

    for (const auto& section : sections)
        engine.addSection (section);

    engine.process (signal);
    return signal;
}

TEST (FIIREngine, FollowsItsDefinitionOnAnySignal)
{
    std::mt19937 random (1);
    std::normal_distribution<float> noise;
    const auto vector = [&] (Eigen::Index size) {
        return Eigen::VectorXf::NullaryExpr (size, [&] { return noise (random); }).eval();
    };

    // Six sections: more than one bank of the engine, and one that is not full.
    std::vector<FIIRSection> sections { {},
                                        resonance (0.99, 0.01, 0.3f, -0.2f),
                                        resonance (0.5, 2.0, 1.0f, 0.0f),
                                        { -1.2f, 0.35f, 0.0f, 0.7f },
                                        { 0.0f, 0.0f, 2.0f, 3.0f },
                                        resonance (0.9999, 0.003, 1e-3f, 0.0f) };

    Eigen::VectorXf sparse = Eigen::VectorXf::Zero (400);
    sparse[7] = 1.5f;
    sparse[200] = -2.0f;
    sparse[399] = 1.0f;

    for (const auto& signal : { vector (400), sparse, Eigen::VectorXf::Zero (400).eval(), Eigen::VectorXf {} })
    {
        for (const Eigen::Index tapCount : { 0, 1, 37, 399, 500 })
        {
            const auto taps = vector (tapCount);
            const auto expected = reference (taps, sections, signal);
            const auto actual = filtered (taps, sections, signal);
            ASSERT_EQ (signal.size(), actual.size());

            for (Eigen::Index n = 0; n < signal.size();
                 ++n) // taps add up in single precision, hundreds of terms of size one
                ASSERT_NEAR (static_cast<double> (expected[static_cast<size_t> (n)]), actual[n], 1e-4)
                    << tapCount << " taps, sample " << n;
        }
    }
}

TEST (SectionBank, SectionsSideBySideGiveTheSumsOfFourAfterFourToTheLastBit)
{
    std::mt19937 random (1);
    std::normal_distribution<float> noise;
    const Eigen::VectorXf signal = Eigen::VectorXf::NullaryExpr (1000, [&] { return noise (random); });
    const Eigen::VectorXf impulse = Eigen::VectorXf::Unit (1000, 0);

    for (const Eigen::VectorXf* input : { &signal, &impulse })
    {
        const Eigen::Index inputEnd = input == &impulse ? 1 : 1000;
        veltra::dsp::SectionBank all;
        Eigen::VectorXd expected = Eigen::VectorXd::Zero (1000), actual = expected;

        for (int i = 0; i < 11; i += 4)
        {
            veltra::dsp::SectionBank four;

            for (int k = i; k < std::min (i + 4, 11); ++k) // the second four have decayed after some 100 samples
            {
                const auto section = resonance (i == 4 ? 0.01 : 0.9999 - 0.02 * k, 0.01 + 0.2 * k, 1.0f, -0.5f);
                four.add (section);
                all.add (section);
            }

            four.addOutput (*input, inputEnd, expected);
        }

        all.addOutput (*input, inputEnd, actual);
        EXPECT_EQ (expected, actual);
    }
}

TEST (FIIREngine, AnImpulseGivesTheTapsBitByBit)
{
    Eigen::VectorXf taps (6);
    taps << 0.1f, -0.0f, 1e-42f, -3.4e38f, 0.0f, -7.25f;
    const auto response = filtered (taps, { resonance (0.9, 0.5, 1.0f, 1.0f) }, Eigen::VectorXf::Unit (100, 0));
    EXPECT_EQ (0, std::memcmp (taps.data(), response.data(), sizeof (float) * 6));
    EXPECT_FLOAT_EQ (1.0f, response[6]) << "sections begin behind the taps";
}

TEST (FIIREngine, SectionsKeepTheirPrecisionForASecond)
{
    // 20 Hz at 96 kHz, decaying by 60 dB within a second: in single precision this is off by far more than -60 dB.
    const std::vector<FIIRSection> sections { resonance (0.99993, 2.0 * 3.14159265358979 * 20.0 / 96000.0, 0.0f,
                                                         1e-3f) };
    const Eigen::VectorXf impulse = Eigen::VectorXf::Unit (96000, 0);
    const auto expected = reference ({}, sections, impulse);
    const auto actual = filtered ({}, sections, impulse);
    long double peak = 0.0L, error = 0.0L;

    for (size_t n = 0; n < expected.size(); ++n)
    {
        peak = std::max (peak, std::abs (expected[n]));
        error = std::max (error, std::abs (expected[n] - actual[static_cast<Eigen::Index> (n)]));
    }

    EXPECT_LT (error, 1e-7L * peak);
}

TEST (FIIREngine, ADecayedSectionEndsAndAnUnstableOneIsLetRun)
{
    const auto decayed = filtered ({}, { resonance (0.5, 1.0, 1.0f, 0.0f) }, Eigen::VectorXf::Unit (48000, 0));
    EXPECT_EQ (0.0f, decayed.tail (47000).cwiseAbs().maxCoeff());

    const auto growing = filtered ({}, { resonance (1.01, 0.3, 1.0f, 0.0f), resonance (0.1, 0.3, 1.0f, 0.0f) },
                                   Eigen::VectorXf::Unit (48000, 0));
    EXPECT_FALSE (std::isfinite (growing[40000]));

    // What follows much later finds the section at rest and starts it anew.
    Eigen::VectorXf twice = Eigen::VectorXf::Unit (48000, 0);
    twice[40000] = 1.0f;
    const auto response = filtered ({}, { resonance (0.5, 1.0, 1.0f, 0.25f) }, twice);
    EXPECT_EQ (response.head (200), response.segment (40000, 200));
}

}
