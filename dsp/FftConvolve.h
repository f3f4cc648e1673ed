// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::dsp {

/** Full linear convolution of two sequences by FFT, in single precision. FftConvolver gives the same values
    with less work where one of the sequences stays the same.

    @param a, b  samples; an empty sequence gives an empty result
    @returns     a.size() + b.size() - 1 samples
    @throws      std::bad_alloc, also for lengths that no transform covers
    Safe to call from several threads at once.
*/
Eigen::VectorXf fftConvolve (const Eigen::VectorXf& a, const Eigen::VectorXf& b);

/** Length of the transform that a convolution takes: the smallest power of two that is not below the length of
    its result, sizeA + sizeB - 1.

    @param sizeA, sizeB  at least 1
    @throws              std::bad_alloc when it is above 2^30
*/
int convolutionFftSize (Eigen::Index sizeA, Eigen::Index sizeB);

}
