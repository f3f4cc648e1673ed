// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/Resampling.h"
#include "tests/support/Testing.h"

namespace {

using veltra::dsp::resampleDouble;
using veltra::dsp::resampleFloat;

/** Response of an impulse response at a frequency, in dB. */
double levelAt (const Eigen::VectorXd& h, double frequency, double rate)
{
    std::complex<double> sum = 0.0;

    for (Eigen::Index n = 0; n < h.size(); ++n)
        sum += h[n] * std::polar (1.0, -2.0 * std::numbers::pi * frequency / rate * static_cast<double> (n));

    return 20.0 * std::log10 (std::abs (sum));
}

// r8brain's ripple follows from the stop-band attenuation, and at fractional ratios it misses what rings before the
// first sample, so that its first samples are off by up to 0.018 of a step. libsoxr works in single precision.
#ifdef VELTRA_HAS_R8BRAIN
constexpr double kRipple_dB = 0.02, kStartError = 0.02, kError = 1e-4;
#else
constexpr double kRipple_dB = 0.0005, kStartError = 2e-6, kError = 2e-6;
#endif

struct Rates
{
    double from;
    double to;
};

class Resampling : public testing::TestWithParam<Rates>
{
protected:
    const double from = GetParam().from;
    const double to = GetParam().to;
    const double ratio = to / from;
};

TEST_P (Resampling, AnImpulseKeepsItsPlaceAndItsLength)
{
    Eigen::VectorXd in = Eigen::VectorXd::Unit (40000, 20480);
    const auto out = resampleDouble (in, ratio, 80.0);
    ASSERT_EQ (static_cast<Eigen::Index> (std::floor (40000 * ratio + 0.5)), out.size());

    const auto centre = 20480 * ratio;
    Eigen::Index peak = 0;
    out.cwiseAbs().maxCoeff (&peak);
    EXPECT_NEAR (centre, static_cast<double> (peak), 0.51);

    // Linear phase without latency: the centre of gravity of the energy is the impulse's place.
    double energy = 0.0, moment = 0.0;

    for (Eigen::Index n = 0; n < out.size(); ++n)
    {
        energy += out[n] * out[n];
        moment += out[n] * out[n] * (static_cast<double> (n) - centre);
    }

    EXPECT_NEAR (0.0, moment / energy, 1e-3);
}

TEST_P (Resampling, PassesTheBandAndStopsWhatLiesBeyond)
{
    const auto response = (resampleDouble (Eigen::VectorXd::Unit (40000, 20480), ratio, 80.0) / ratio).eval();
    const double nyquist = 0.5 * std::min (from, to);

    for (int percent = 0; percent <= 98; percent += 2)
        EXPECT_NEAR (0.0, levelAt (response, 0.01 * percent * nyquist, to), kRipple_dB) << percent;

    EXPECT_NEAR (-3.0, levelAt (response, 0.995 * nyquist, to), 0.5);

    // A tone above the output's Nyquist frequency must not come back as another one; going up, its image must not.
    Eigen::VectorXd tone = Eigen::VectorXd::NullaryExpr (40000, [&] (Eigen::Index n) {
        const double window = 0.5 - 0.5 * std::cos (2.0 * std::numbers::pi * static_cast<double> (n) / 40000.0);
        const double frequency = to < from ? std::min (1.02 * nyquist, 0.499 * from) : 0.45 * from;
        return window * std::sin (2.0 * std::numbers::pi * frequency / from * static_cast<double> (n));
    });
    const auto out = resampleDouble (tone, ratio, 80.0);

    if (to < from)
    {
        EXPECT_LT (20.0 * std::log10 (out.cwiseAbs().maxCoeff()), -80.0);
    }
    else
    {
        const double wanted = levelAt (out, 0.45 * from, to);
        EXPECT_LT (levelAt (out, 0.55 * from, to) - wanted, -80.0) << "image";
    }
}

TEST_P (Resampling, ASignalMayBeginWithItsFirstSample)
{
    // The same signal, which begins with a step, at the start and behind silence. The shift lies on an output sample
    // at all of the rates.
    constexpr Eigen::Index shift = 94080;
    const Eigen::VectorXd atStart =
        Eigen::VectorXd::NullaryExpr (5000, [] (Eigen::Index n) { return std::cos (0.1 * static_cast<double> (n)); });
    Eigen::VectorXd later = Eigen::VectorXd::Zero (shift + 5000);
    later.tail (5000) = atStart;

    const auto outAtStart = resampleDouble (atStart, ratio, 80.0);
    const auto outLater = resampleDouble (later, ratio, 80.0);
    const auto place = static_cast<Eigen::Index> (std::round (static_cast<double> (shift) * ratio));
    const Eigen::VectorXd error = (outAtStart - outLater.segment (place, outAtStart.size())).cwiseAbs();
    EXPECT_LT (error.maxCoeff(), kStartError);
    EXPECT_LT (error.tail (error.size() - 100).maxCoeff(), kError);
}

INSTANTIATE_TEST_SUITE_P (Rates, Resampling,
                          testing::Values (Rates { 96000, 48000 }, Rates { 96000, 44100 }, Rates { 48000, 44100 },
                                           Rates { 192000, 44100 }, Rates { 48000, 96000 }, Rates { 44100, 48000 },
                                           Rates { 48000, 46000 }, Rates { 48000, 32000 }),
                          [] (const auto& tested) {
                              return std::to_string (static_cast<int> (tested.param.from)) + "To"
                                     + std::to_string (static_cast<int> (tested.param.to));
                          });

TEST (ResamplingEdges, LengthsAreRoundedToTheNearestAndRatioOneIsTheInput)
{
    const Eigen::VectorXf in = Eigen::VectorXf::Random (10000);
    EXPECT_EQ (in, resampleFloat (in, 1.0, 80.0));
    EXPECT_EQ (2, resampleFloat (Eigen::VectorXf::Ones (1), 2.0, 80.0).size());
    EXPECT_NEAR (1.0, resampleFloat (Eigen::VectorXf::Ones (1), 2.0, 80.0)[0], 0.01);
    EXPECT_EQ (3, resampleFloat (Eigen::VectorXf::Ones (5), 0.5, 80.0).size());
    EXPECT_EQ (0, resampleFloat ({}, 0.5, 80.0).size());
    EXPECT_EQ (0, resampleFloat (Eigen::VectorXf::Ones (1), 0.25, 80.0).size());
}

TEST (ResamplingEdges, RatiosOfNoUseGiveNothing)
{
    const Eigen::VectorXf in = Eigen::VectorXf::Ones (100);

    for (const double ratio : { 0.0, -1.0, 1e-9, 257.0, 1e300, std::numeric_limits<double>::infinity(),
                                std::numeric_limits<double>::quiet_NaN() })
        EXPECT_EQ (0, resampleFloat (in, ratio, 80.0).size()) << ratio;

    EXPECT_EQ (25600, resampleFloat (in, 256.0, 80.0).size());
    EXPECT_EQ (4, resampleFloat (Eigen::VectorXf::Ones (1024), 1.0 / 256.0, 80.0).size());
    EXPECT_EQ (48001, resampleFloat (Eigen::VectorXf::Ones (1536000), 48001.0 / 1536000.0, 80.0).size())
        << "no small fraction";
    EXPECT_EQ (141, resampleFloat (in, std::numbers::sqrt2, 80.0).size()) << "no fraction at all";
    EXPECT_THROW (static_cast<void> (resampleFloat (Eigen::VectorXf::Ones (2100000), 256.0, 80.0)), std::bad_alloc);
}

}
