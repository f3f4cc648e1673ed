// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/ResponseError.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "dsp/FftConvolve.h"
#include "dsp/RealFft.h"

namespace veltra::dsp {

namespace {

using Eigen::Index;
using Eigen::VectorXd;
using Eigen::VectorXf;

constexpr double lowestCentre_Hz = 15.625; // 1000 Hz, six octaves down

double ratio_dB (double energy, double reference)
{
    return energy > 0.0 ? 10.0 * std::log10 (energy / reference) : -std::numeric_limits<double>::infinity();
}

/** Energy of the bins of a half spectrum; sums of them compare with one another only. */
VectorXd energyOfBins (const RealFft& fft, const VectorXf& signal)
{
    VectorXf padded = VectorXf::Zero (fft.size());
    padded.head (signal.size()) = signal;

    Eigen::VectorXcf spectrum;
    fft.forward (padded, spectrum);

    VectorXd energy = spectrum.cwiseAbs2().cast<double>();
    energy.segment (1, energy.size() - 2) *=
        2.0; // but for the two at the ends each bin stands for its mirror image too
    return energy;
}

}

ResponseError compareResponses (const VectorXf& wanted, const VectorXf& played, Index delay, double sampleRate)
{
    const Index length = std::max ({ wanted.size() + delay, played.size(), Index { 4 } });

    VectorXf expected = VectorXf::Zero (length);
    expected.segment (delay, wanted.size()) = wanted;

    VectorXf difference = -expected;
    difference.head (played.size()) += played;

    const double wholeEnergy = wanted.cast<double>().squaredNorm();
    ResponseError result { ratio_dB (difference.cast<double>().squaredNorm(), wholeEnergy), {} };

    const RealFft fft (convolutionFftSize (length, 1));
    const VectorXd wantedEnergy = energyOfBins (fft, expected);
    const VectorXd errorEnergy = energyOfBins (fft, difference);
    const double allEnergy = wantedEnergy.sum();

    for (double centre = lowestCentre_Hz; centre < sampleRate / 2.0; centre *= 2.0)
    {
        const auto binAt = [&] (double frequency) {
            return std::min<Index> (std::lround (frequency / sampleRate * fft.size()), fft.bins());
        };

        const Index first = binAt (centre / std::numbers::sqrt2);
        const Index count = binAt (centre * std::numbers::sqrt2) - first;
        const double inBand = wantedEnergy.segment (first, count).sum();
        result.bands.push_back (
            { centre, ratio_dB (errorEnergy.segment (first, count).sum(), inBand), ratio_dB (inBand, allEnergy) });
    }

    return result;
}

}
