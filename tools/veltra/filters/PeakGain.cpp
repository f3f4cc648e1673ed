// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/PeakGain.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <new>

#include <fftw3.h>

namespace veltra::host {

namespace {

constexpr std::size_t kPointsPerSample = 8;

struct FreeWithFftw
{
    void operator() (float* samples) const noexcept { fftwf_free (samples); }
    void operator() (fftwf_complex* points) const noexcept { fftwf_free (points); }
    void operator() (fftwf_plan_s* plan) const noexcept { fftwf_destroy_plan (plan); }
};

template <typename T>
std::unique_ptr<T, FreeWithFftw> orThrow (T* made)
{
    return made != nullptr ? std::unique_ptr<T, FreeWithFftw> (made) : throw std::bad_alloc();
}

}

double peakGain_dB (std::span<const float> response)
{
    const auto size = std::bit_ceil (kPointsPerSample * response.size());
    const auto points = size / 2 + 1;

    // FFTW's arrays are not C++ arrays of objects with lifetimes of their own: plain floats, released as a block.
    const auto padded = orThrow (fftwf_alloc_real (size));
    const auto spectrum = orThrow (fftwf_alloc_complex (points));
    const auto plan =
        orThrow (fftwf_plan_dft_r2c_1d (static_cast<int> (size), padded.get(), spectrum.get(), FFTW_ESTIMATE));

    std::fill (std::ranges::copy (response, padded.get()).out, padded.get() + size, 0.0f);
    fftwf_execute (plan.get());

    double largest = 0.0;

    for (std::size_t i = 0; i < points; ++i)
    {
        const double re = spectrum.get()[i][0];
        const double im = spectrum.get()[i][1];
        largest = std::max (largest, re * re + im * im);
    }

    return largest > 0.0 ? 10.0 * std::log10 (largest) : -std::numeric_limits<double>::infinity();
}

}
