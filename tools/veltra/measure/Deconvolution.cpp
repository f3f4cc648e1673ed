// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/measure/Deconvolution.h"

#include <bit>
#include <complex>
#include <cstdint>
#include <vector>

#include <unsupported/Eigen/FFT>

namespace veltra::tools {

namespace {

/** Bins whose energy lies so far below the strongest one, as a ratio, say nothing. */
constexpr double kLeastEnergy = 1e-10;

using Spectrum = std::vector<std::complex<double>>;
using Transform = Eigen::FFT<double, Eigen::internal::kissfft_impl<double>>;

Spectrum transformed (Transform& fft, const Eigen::VectorXf& samples, std::size_t size)
{
    std::vector<double> padded (samples.begin(), samples.end());
    padded.resize (size);
    Spectrum spectrum;
    fft.fwd (spectrum, padded);
    return spectrum;
}

}

Eigen::VectorXf deconvolve (const Eigen::VectorXf& capture, const Eigen::VectorXf& stimulus)
{
    // Room for a response of the capture's length behind the stimulus, so that nothing wraps round.
    const auto size = std::bit_ceil (static_cast<std::size_t> (capture.size() + stimulus.size()));
    Transform fft;
    fft.SetFlag (Transform::HalfSpectrum);
    auto response = transformed (fft, capture, size);
    const auto played = transformed (fft, stimulus, size);

    double strongest = 0.0;

    for (const auto& bin : played)
        strongest = std::max (strongest, std::norm (bin));

    for (std::size_t i = 0; i < response.size(); ++i)
        response[i] = std::norm (played[i]) > kLeastEnergy * strongest ? response[i] / played[i] : 0.0;

    std::vector<double> samples;
    fft.inv (samples, response, static_cast<int> (size));
    return Eigen::Map<const Eigen::VectorXd> (samples.data(), capture.size()).cast<float>();
}

}
