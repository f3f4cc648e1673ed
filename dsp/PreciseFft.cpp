// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/PreciseFft.h"

#include <bit>
#include <cstdint>

#include <unsupported/Eigen/FFT>

namespace veltra::dsp {

namespace {

// Not FFTW: the program that loads the module links its single precision only.
using Transform = Eigen::FFT<double, Eigen::internal::kissfft_impl<double>>;

}

HalfSpectrum preciseSpectrum (const Eigen::VectorXd& samples, Eigen::Index size)
{
    std::vector<double> padded (samples.begin(), samples.end());
    padded.resize (static_cast<std::size_t> (size));
    Transform fft;
    fft.SetFlag (Transform::HalfSpectrum);
    HalfSpectrum spectrum;
    fft.fwd (spectrum, padded);
    return spectrum;
}

Eigen::VectorXd preciseSamples (const HalfSpectrum& spectrum)
{
    Transform fft;
    fft.SetFlag (Transform::HalfSpectrum);
    std::vector<double> samples;
    fft.inv (samples, spectrum, 2 * (static_cast<Eigen::Index> (spectrum.size()) - 1));
    return Eigen::Map<const Eigen::VectorXd> (samples.data(), static_cast<Eigen::Index> (samples.size()));
}

Eigen::Index transformSize (Eigen::Index length)
{
    return static_cast<Eigen::Index> (std::bit_ceil (static_cast<std::uint64_t> (length)));
}

Eigen::VectorXd preciseConvolve (const Eigen::VectorXd& a, const Eigen::VectorXd& b)
{
    const auto length = a.size() + b.size() - 1;
    const auto size = std::max<Eigen::Index> (transformSize (length), 4);
    auto product = preciseSpectrum (a, size);
    const auto other = preciseSpectrum (b, size);

    for (std::size_t i = 0; i < product.size(); ++i)
        product[i] *= other[i];

    return preciseSamples (product).head (length);
}

}
