// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/FftConvolve.h"

#include <bit>
#include <cstdint>
#include <new>

#include "dsp/FftConvolver.h"

namespace veltra::dsp {

int convolutionFftSize (Eigen::Index sizeA, Eigen::Index sizeB)
{
    constexpr Eigen::Index longest = Eigen::Index { 1 } << 30;

    if (sizeA > longest || sizeB > longest || sizeA + sizeB - 1 > longest)
        throw std::bad_alloc();

    return static_cast<int> (std::bit_ceil (static_cast<std::uint32_t> (sizeA + sizeB - 1)));
}

Eigen::VectorXf fftConvolve (const Eigen::VectorXf& a, const Eigen::VectorXf& b)
{
    FftConvolver convolver ({ b });
    convolver.setSignal (a);
    return convolver.convolve (0);
}

}
