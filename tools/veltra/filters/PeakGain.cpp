// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/PeakGain.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/FftConvolve.h"
#include "tools/veltra/report/ErrorTable.h"

namespace veltra::host {

double peakGain_dB (std::span<const float> response)
{
    constexpr Eigen::Index pointsPerSample = 8;

    const auto length = static_cast<Eigen::Index> (response.size());
    const dsp::RealFft fft (dsp::convolutionFftSize (pointsPerSample * length, 1));
    Eigen::VectorXf padded = Eigen::VectorXf::Zero (fft.size());
    std::ranges::copy (response, padded.begin());

    Eigen::VectorXcf spectrum;
    fft.forward (padded, spectrum);
    const double largest = spectrum.cast<std::complex<double>>().cwiseAbs2().maxCoeff();
    return largest > 0.0 ? 10.0 * std::log10 (largest) : -std::numeric_limits<double>::infinity();
}

std::string boostNote (const std::map<std::string, double>& boosts_dB)
{
    std::string list;

    for (const auto& [channel, gain_dB] : boosts_dB)
        list += (list.empty() ? "" : ", ") + channel + " by " + fixedText (gain_dB, 1) + " dB";

    return list.empty() ? "" : "Plain FIR filters can drive the receiver above full scale: " + list + ".\n";
}

}
