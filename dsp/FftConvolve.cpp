// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/FftConvolve.h"

#include <bit>
#include <cassert>
#include <cstdint>
#include <new>
#include <utility>

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

FftConvolver::FftConvolver (std::vector<Eigen::VectorXf> newKernels) : kernels (std::move (newKernels)) {}

void FftConvolver::setSignal (const Eigen::VectorXf& newSignal)
{
    signal = &newSignal;

    for (auto& [size, transform] : transforms)
        transform.hasSignal = false;
}

Eigen::Ref<const Eigen::VectorXf> FftConvolver::convolve (std::size_t kernel)
{
    assert (signal != nullptr && kernel < kernels.size());

    if (signal->size() == 0 || kernels[kernel].size() == 0)
        return samples.head (0);

    const auto& transform = transformFor (kernel);
    setSize (product, transform.fft->bins());
    product = transform.signalSpectrum.cwiseProduct (transform.kernelSpectra[kernel]);
    transform.fft->inverse (product, samples);
    return samples.head (signal->size() + kernels[kernel].size() - 1);
}

FftConvolver::Transform& FftConvolver::transformFor (std::size_t kernel)
{
    const int size = convolutionFftSize (signal->size(), kernels[kernel].size());
    auto& transform = transforms.try_emplace (size, size, kernels.size()).first->second;

    if (transform.kernelSpectra[kernel].size() == 0)
        transformPadded (*transform.fft, kernels[kernel], transform.kernelSpectra[kernel]);

    if (! transform.hasSignal)
    {
        transformPadded (*transform.fft, *signal, transform.signalSpectrum);
        transform.hasSignal = true;
    }

    return transform;
}

void FftConvolver::transformPadded (const RealFft& fft, const Eigen::VectorXf& input, Eigen::VectorXcf& spectrum)
{
    setSize (samples, fft.size());
    samples.head (input.size()) = input;
    samples.tail (fft.size() - input.size()).setZero();
    fft.forward (samples, spectrum);
}

}
