// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/measure/ResponseCurve.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "dsp/PreciseFft.h"

namespace veltra::host {

namespace {

constexpr double kLowestFrequency_Hz = 10.0;
constexpr int kPointsPerOctave = 48;
constexpr double kWidestBin_Hz = 0.5; // of the spectrum whose power is averaged

double decibels (double power)
{
    return power > 0.0 ? 10.0 * std::log10 (power) : -std::numeric_limits<double>::infinity();
}

}

std::vector<CurvePoint> curveOf (const Eigen::VectorXf& response, double sampleRate, double octaves)
{
    std::vector<CurvePoint> curve;
    dsp::HalfSpectrum spectrum;
    double perHertz = 0.0;

    if (octaves > 0.0)
    {
        const auto size = dsp::transformSize (
            std::max (response.size(), static_cast<Eigen::Index> (std::ceil (sampleRate / kWidestBin_Hz))));
        spectrum = dsp::preciseSpectrum (response.cast<double>(), size);
        perHertz = static_cast<double> (size) / sampleRate;
    }

    for (int i = 0;; ++i)
    {
        const double frequency = kLowestFrequency_Hz * std::exp2 (static_cast<double> (i) / kPointsPerOctave);

        if (frequency > 0.5 * sampleRate)
            return curve;

        // Horner's rule for the sum of h[n] z^-n and that of n h[n] z^-n, whose ratio is the delay in samples (J. O. Smith,
        // "Introduction to Digital Filters", numerical computation of group delay).
        const double angle = 2.0 * std::numbers::pi * frequency / sampleRate;
        const auto late = std::polar (1.0, -angle);
        std::complex<double> sum = 0.0, weighted = 0.0;

        for (auto n = response.size(); n-- > 0;)
        {
            const double sample = response[n];
            sum = sum * late + sample;
            weighted = weighted * late + static_cast<double> (n) * sample;
        }

        double power = std::norm (sum);

        if (octaves > 0.0)
        {
            const double bin = frequency * perHertz;
            const auto last = std::min (spectrum.size() - 1,
                                        static_cast<std::size_t> (std::lround (bin * std::exp2 (0.5 * octaves))));
            const auto first =
                std::min (last, static_cast<std::size_t> (std::lround (bin * std::exp2 (-0.5 * octaves))));
            power = 0.0;

            for (auto k = first; k <= last; ++k)
                power += std::norm (spectrum[k]) / static_cast<double> (last - first + 1);
        }

        const bool isNothing = ! (std::norm (sum) > 0.0);
        curve.push_back ({ frequency, decibels (power), isNothing ? 0.0 : std::arg (sum) * 180.0 / std::numbers::pi,
                           isNothing ? 0.0 : 1000.0 * (weighted / sum).real() / sampleRate });
    }
}

Eigen::VectorXd stepResponse (const Eigen::VectorXf& response)
{
    Eigen::VectorXd sums (response.size());
    double sum = 0.0;

    for (Eigen::Index i = 0; i < response.size(); ++i)
        sums[i] = sum += static_cast<double> (response[i]);

    return sums;
}

}
