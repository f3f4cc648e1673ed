// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/MinimumPhase.h"

#include <cmath>

#include "dsp/PreciseFft.h"

namespace veltra::dsp {

Eigen::VectorXd minimumPhaseResponse (const Eigen::VectorXd& magnitude)
{
    HalfSpectrum spectrum (static_cast<std::size_t> (magnitude.size()));

    for (std::size_t i = 0; i < spectrum.size(); ++i)
        spectrum[i] = std::log (magnitude[static_cast<Eigen::Index> (i)]);

    Eigen::VectorXd cepstrum = preciseSamples (spectrum);
    const auto half = cepstrum.size() / 2;
    cepstrum.segment (1, half - 1) *= 2.0;
    cepstrum.tail (half - 1).setZero();

    spectrum = preciseSpectrum (cepstrum, cepstrum.size());

    for (auto& value : spectrum)
        value = std::exp (value);

    return preciseSamples (spectrum);
}

}
