// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <complex>
#include <vector>

#include <Eigen/Core>

/** @file
    Transforms in double precision, for measurements and for the design of filters, where single precision shows. RealFft
    is several times as fast. Safe to call from several threads at once. Everything here throws std::bad_alloc.
*/

namespace veltra::dsp {

/** Values from 0 Hz to half the sample rate: size / 2 + 1 for a transform of an even size. */
using HalfSpectrum = std::vector<std::complex<double>>;

/** @param samples  taken as followed by zeros; not more than size
    @param size     even
*/
HalfSpectrum preciseSpectrum (const Eigen::VectorXd& samples, Eigen::Index size);

/** @returns  2 (spectrum.size() - 1) samples */
Eigen::VectorXd preciseSamples (const HalfSpectrum& spectrum);

/** The smallest power of two that is not below a length. */
Eigen::Index transformSize (Eigen::Index length);

/** Full linear convolution, within some 1e-15 of the largest value.
    @param a, b  samples, neither empty
    @returns     a.size() + b.size() - 1 samples
*/
Eigen::VectorXd preciseConvolve (const Eigen::VectorXd& a, const Eigen::VectorXd& b);

}
