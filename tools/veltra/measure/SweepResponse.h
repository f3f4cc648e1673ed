// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <vector>

#include <Eigen/Core>

namespace veltra::host {

/** An exponential sweep, as far as its evaluation has to know it. */
struct SweepShape
{
    double seconds = 4.0;
    double startFrequency_Hz = 10.0;
    double endFrequency_Hz = 24000.0;
    double sampleRate_Hz = 48000.0;
};

/** What captures of a sweep say about the room. */
struct SweepResponse
{
    Eigen::VectorXf samples; ///< the linear response, kPreRoll_s of it in front of its largest sample
    Eigen::Index peak = 0;   ///< place of the largest sample
    double signalToNoise_dB =
        0; ///< energy of the response and of as much noise; not finite where there is nothing to tell it by
    std::vector<double>
        harmonics_dB; ///< energies of orders 2 to 5 relative to the response; minus infinity: below the noise
};

inline constexpr double kPreRoll_s = 0.01;

/** The impulse response by deconvolution, with the products of distortion apart: that of order n arrives earlier by
    T ln n / ln (f2 / f1), T being the sweep's duration (A. Farina, "Simultaneous measurement of impulse response and
    distortion with a swept-sine technique", 108th AES Convention, 2000). The division of the spectra is regularised, and the
    highest 8 per cent of the sweep's frequencies fade out.

    Captures after the first are shifted by whole samples to where they agree with it best, and averaged.

    @param captures   one or more; each begins before the stimulus and lasts until the room has become silent
    @param stimulus   as it was played
    @param longest_s  of the response behind its peak; less where the captures end before
    @throws           Failure (kExitReceiver) for captures in which no response is found; std::bad_alloc
*/
SweepResponse evaluateSweep (std::span<const Eigen::VectorXf> captures, const Eigen::VectorXf& stimulus,
                             const SweepShape& shape, double longest_s);

}
