// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/ResponseError.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/FftConvolve.h"
#include "dsp/RealFft.h"

namespace veltra::dsp {

namespace {

using Eigen::Index;
using Eigen::VectorXd;
using Eigen::VectorXf;

constexpr double kLowestOctave_Hz = 15.625; // 1000 Hz, six octaves down
constexpr double kLowestPoint_Hz = 10.0;

double ratio_dB (double energy, double reference)
{
    return energy > 0.0 ? 10.0 * std::log10 (energy / reference) : -std::numeric_limits<double>::infinity();
}

/** Power of the points of a half spectrum. The two at its ends count half, since the points between them also represent
    their mirror images. */
VectorXd powerSpectrum (const RealFft& fft, const VectorXf& signal)
{
    VectorXf padded = VectorXf::Zero (fft.size());
    padded.head (signal.size()) = signal;

    Eigen::VectorXcf spectrum;
    fft.forward (padded, spectrum);

    VectorXd power = spectrum.cwiseAbs2().cast<double>();
    power[0] *= 0.5;
    power[power.size() - 1] *= 0.5;
    return power;
}

struct Spectra
{
    VectorXd wanted, played, difference;
    double resolution_Hz;

    /** @param factor  from the centre to either end of the band */
    ResponseError::Band band (double centre_Hz, double factor) const
    {
        const auto pointAt = [this] (double frequency) {
            return std::min<Index> (std::lround (frequency / resolution_Hz), wanted.size());
        };

        const Index first = std::min (pointAt (centre_Hz / factor), wanted.size() - 1);
        const Index count = std::max<Index> (pointAt (centre_Hz * factor) - first, 1);
        const auto sum = [=] (const VectorXd& power) { return power.segment (first, count).sum(); };
        const double inBand = sum (wanted);
        const double weight =
            static_cast<double> (count) - (first == 0 ? 0.5 : 0.0) - (first + count == wanted.size() ? 0.5 : 0.0);

        return { .centre_Hz = centre_Hz,
                 .wanted_dB = ratio_dB (inBand, weight),
                 .played_dB = ratio_dB (sum (played), weight),
                 .error_dB = ratio_dB (sum (difference), inBand),
                 .level_dB = ratio_dB (inBand, wanted.sum()) };
    }
};

}

ResponseError compareResponses (const VectorXf& wanted, const VectorXf& played, Index delay, double sampleRate)
{
    const Index length = std::max ({ wanted.size() + delay, played.size(), Index { 4 } });

    VectorXf expected = VectorXf::Zero (length);
    expected.segment (delay, wanted.size()) = wanted;

    VectorXf difference = -expected;
    difference.head (played.size()) += played;

    ResponseError result;
    result.overall_dB = ratio_dB (difference.cast<double>().squaredNorm(), wanted.cast<double>().squaredNorm());
    result.isSilent = played.isZero (0.0f);

    const RealFft fft (convolutionFftSize (length, 1));
    const Spectra spectra { powerSpectrum (fft, expected), powerSpectrum (fft, played), powerSpectrum (fft, difference),
                            sampleRate / fft.size() };
    result.resolution_Hz = spectra.resolution_Hz;

    for (double centre = kLowestOctave_Hz; centre < sampleRate / 2.0; centre *= 2.0)
        result.octaves.push_back (spectra.band (centre, std::exp2 (0.5)));

    const double step = std::exp2 (1.0 / kCurvePointsPerOctave);

    for (double centre = kLowestPoint_Hz; centre < sampleRate / 2.0; centre *= step)
        result.curve.push_back (spectra.band (centre, std::sqrt (step)));

    return result;
}

}
