// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/BandSplitFilters.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace veltra::dsp {

namespace {

/** kRateFilter up to its centre. */
constexpr std::array<float, 150> rateFilterHalf = {
    1.37013685e-05f,  5.15766078e-06f,  5.76429647e-06f,  6.11769337e-06f,  6.12152553e-06f,  5.67529469e-06f,
    4.67058317e-06f,  3.00093393e-06f,  5.58971578e-07f,  -2.75288903e-06f, -7.02402849e-06f, -1.23242080e-05f,
    -1.87036640e-05f, -2.61821406e-05f, -3.47488349e-05f, -4.43519384e-05f, -5.49014148e-05f, -6.62589810e-05f,
    -7.82421412e-05f, -9.06152636e-05f, -1.03095626e-04f, -1.15348455e-04f, -1.26997576e-04f, -1.37625073e-04f,
    -1.46785766e-04f, -1.54008376e-04f, -1.58809737e-04f, -1.60700714e-04f, -1.59208488e-04f, -1.53889589e-04f,
    -1.44352016e-04f, -1.30258108e-04f, -1.11343339e-04f, -8.74376274e-05f, -5.85023554e-05f, -2.46140771e-05f,
    1.40464272e-05f,  5.70830380e-05f,  1.04007580e-04f,  1.54136331e-04f,  2.06639772e-04f,  2.60532834e-04f,
    3.14682780e-04f,  3.67829634e-04f,  4.18598182e-04f,  4.65528341e-04f,  5.07096644e-04f,  5.41755173e-04f,
    5.67962707e-04f,  5.84230176e-04f,  5.89157920e-04f,  5.81485045e-04f,  5.60127082e-04f,  5.24226809e-04f,
    4.73189779e-04f,  4.06731589e-04f,  3.24906228e-04f,  2.28140969e-04f,  1.17252181e-04f,  -6.53159896e-06f,
    -1.41569035e-04f, -2.85802787e-04f, -4.36781527e-04f, -5.91679127e-04f, -7.47334445e-04f, -9.00289742e-04f,
    -1.04685861e-03f, -1.18318980e-03f, -1.30534533e-03f, -1.40937779e-03f, -1.49143918e-03f, -1.54786767e-03f,
    -1.57527986e-03f, -1.57069520e-03f, -1.53160945e-03f, -1.45610911e-03f, -1.34295225e-03f, -1.19164854e-03f,
    -1.00253173e-03f, -7.76807836e-04f, -5.16599976e-04f, -2.24961957e-04f, 9.41152321e-05f,  4.35730472e-04f,
    7.94111460e-04f,  1.16268487e-03f,  1.53415953e-03f,  1.90064218e-03f,  2.25376268e-03f,  2.58483319e-03f,
    2.88500730e-03f,  3.14547005e-03f,  3.35762394e-03f,  3.51329916e-03f,  3.60495131e-03f,  3.62587511e-03f,
    3.57039506e-03f,  3.43406713e-03f,  3.21384962e-03f,  2.90826778e-03f,  2.51754373e-03f,  2.04371521e-03f,
    1.49071042e-03f,  8.64396396e-04f,  1.72584827e-04f,  -5.74985694e-04f, -1.36672880e-03f, -2.18931050e-03f,
    -3.02779535e-03f, -3.86583805e-03f, -4.68589878e-03f, -5.46950242e-03f, -6.19752519e-03f, -6.85050152e-03f,
    -7.40896305e-03f, -7.85377808e-03f, -8.16651713e-03f, -8.32980126e-03f, -8.32766481e-03f, -8.14589299e-03f,
    -7.77235022e-03f, -7.19727483e-03f, -6.41355198e-03f, -5.41693810e-03f, -4.20625694e-03f, -2.78352736e-03f,
    -1.15406222e-03f, 6.73508213e-04f,  2.68725329e-03f,  4.87202965e-03f,  7.20961532e-03f,  9.67891421e-03f,
    1.22561967e-02f,  1.49154114e-02f,  1.76285226e-02f,  2.03659106e-02f,  2.30967831e-02f,  2.57896334e-02f,
    2.84127090e-02f,  3.09345014e-02f,  3.33242118e-02f,  3.55522558e-02f,  3.75907160e-02f,  3.94137837e-02f,
    4.09981832e-02f,  4.23235334e-02f,  4.33726944e-02f,  4.41320278e-02f,  4.45916355e-02f,  4.47455086e-02f,
};

constexpr std::array<float, 299> mirrorRateFilter()
{
    std::array<float, 299> taps {};

    for (std::size_t i = 0; i < rateFilterHalf.size(); ++i)
        taps[i] = taps[taps.size() - 1 - i] = rateFilterHalf[i];

    return taps;
}

constexpr auto rateFilter = mirrorRateFilter();

constexpr std::array<float, 597> makeHighPassFilter()
{
    std::array<double, 597> taps {};
    taps[kBandSplitDelay] = 1.0;

    // An impulse that meets the decimator's grid: of the low-pass only every 16th tap is kept, and each of them
    // starts the interpolator's response.
    for (std::size_t k = 0; k < rateFilter.size(); k += kDecimation)
        for (std::size_t i = 0; i < rateFilter.size(); ++i)
            taps[k + i] -= static_cast<double> (rateFilter[i]) * (kDecimation * static_cast<double> (rateFilter[k]));

    std::array<float, 597> rounded {};
    std::transform (taps.begin(), taps.end(), rounded.begin(), [] (double tap) { return static_cast<float> (tap); });
    return rounded;
}

/** The modified Bessel function of the first kind of order zero, by its power series; x from 0 to 5 converges to
    double precision within 25 terms. */
double besselI0 (double x)
{
    double term = 1.0, sum = 1.0;

    for (int k = 1; k <= 30; ++k)
    {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
    }

    return sum;
}

double sinc (double x) { return x == 0.0 ? 1.0 : std::sin (std::numbers::pi * x) / (std::numbers::pi * x); }

std::array<float, 321> makeSplitFilter()
{
    constexpr double beta = 5.0;
    constexpr double delay = kSplitFilterDelay;
    std::array<float, 321> taps {};

    for (std::size_t n = 0; n < taps.size(); ++n)
    {
        const double place = static_cast<double> (n) / delay - 1.0; // -1 to 1 over the filter
        const double window = besselI0 (beta * std::sqrt (1.0 - place * place)) / besselI0 (beta);
        const double x = (static_cast<double> (n) - delay) / kDecimation;
        taps[n] = static_cast<float> (sinc (x) / kDecimation * window);
    }

    return taps;
}

}

const std::array<float, 299> kRateFilter = rateFilter;
const std::array<float, 597> kHighPassFilter = makeHighPassFilter();
const std::array<float, 321> kSplitFilter = makeSplitFilter();

}
