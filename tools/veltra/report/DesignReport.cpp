// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/DesignReport.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "dsp/ParallelSections.h"
#include "dsp/RealFft.h"

namespace veltra::host {

namespace {

using Eigen::Index;
using Eigen::VectorXcf;
using Eigen::VectorXd;
using Eigen::VectorXf;

constexpr double kLowestOctave = 31.25, kHighestOctave = 16000.0;
constexpr double kLowestCurve = 10.0;
constexpr double kCurveBandsPerOctave = 24.0;

double decibels (double energy) { return 10.0 * std::log10 (std::max (energy, 1e-30)); }

/** Power spectra of the responses and of their difference, up to half the sample rate. */
struct Spectra
{
    VectorXd wanted, designed, difference;
    double binWidth;

    /** The band from `factor` below to `factor` above its centre; at low frequencies at least the nearest bin. */
    BandError band (double frequency, double factor) const
    {
        const auto bin = [this] (double f) {
            return std::clamp<Index> (static_cast<Index> (std::ceil (f / binWidth - 0.5)), 0, wanted.size() - 1);
        };
        const Index first = bin (frequency / factor), count = std::max<Index> (bin (frequency * factor) - first, 1);
        const auto mean = [=] (const VectorXd& power) { return power.segment (first, count).mean(); };

        return { frequency, decibels (mean (wanted)), decibels (mean (designed)),
                 decibels (mean (difference)) - decibels (mean (wanted)) };
    }
};

Spectra spectraOf (const VectorXd& wanted, const VectorXd& designed, unsigned sampleRate)
{
    const dsp::RealFft fft (static_cast<int> (wanted.size()));
    const auto power = [&fft] (const VectorXd& response) {
        VectorXcf spectrum (fft.bins());
        fft.forward (response.cast<float>(), spectrum);
        return VectorXd (spectrum.cast<std::complex<double>>().cwiseAbs2());
    };

    return { power (wanted), power (designed), power (designed - wanted),
             static_cast<double> (sampleRate) / static_cast<double> (wanted.size()) };
}

VectorXd wholeResponse (const dsp::FIIRDesign& design, Index length)
{
    VectorXd response (length);
    response << design.fir.cast<double>(), dsp::impulseResponse (design.sections, length - design.fir.size());
    return response;
}

}

DesignReport examineDesign (std::span<const float> wanted, const dsp::FIIRDesign& design, unsigned sampleRate)
{
    // Twice the response, so that what rings on behind its end counts as well.
    const auto length = static_cast<Index> (std::bit_ceil (2 * wanted.size()));
    VectorXd target = VectorXd::Zero (length);
    target.head (static_cast<Index> (wanted.size())) =
        Eigen::Map<const VectorXf> (wanted.data(), static_cast<Index> (wanted.size())).cast<double>();

    const VectorXd designed = wholeResponse (design, length);
    const Spectra spectra = spectraOf (target, designed, sampleRate);
    const double nyquist = 0.5 * sampleRate;

    DesignReport report;
    report.error_dB = decibels ((designed - target).squaredNorm()) - decibels (target.squaredNorm());

    for (const auto& section : design.sections)
        report.poleRadius = std::max (report.poleRadius, dsp::poleRadius (section.a1, section.a2));

    for (double f = kLowestOctave; f <= kHighestOctave && f < nyquist; f *= 2.0)
        report.octaves.push_back (spectra.band (f, std::exp2 (0.5)));

    const double step = std::exp2 (1.0 / kCurveBandsPerOctave);

    for (double f = kLowestCurve; f < nyquist; f *= step)
        report.curve.push_back (spectra.band (f, std::sqrt (step)));

    return report;
}

std::string octaveName (double frequency)
{
    const auto text = [] (double value) { return std::to_string (static_cast<int> (value)); };
    return frequency < 1000.0 ? text (frequency) : text (frequency / 1000.0) + "k";
}

}
