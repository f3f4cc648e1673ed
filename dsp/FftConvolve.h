// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include <Eigen/Core>

#include "dsp/RealFft.h"

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

/** Convolves one signal after the other with the same few kernels. The plans are those of the process; the
    kernels' spectra are made once for each transform length that turns up, and a signal is transformed once for
    all kernels that share its transform length. The values are those of fftConvolve (signal, kernel), bit for bit.

    Use an object from one thread at a time.
*/
class FftConvolver
{
public:
    /** @param kernels  samples of each kernel; an empty kernel gives empty results */
    explicit FftConvolver (std::vector<Eigen::VectorXf> kernels);

    /** Takes the signal for the calls of convolve() that follow. It is borrowed until the next setSignal(). */
    void setSignal (const Eigen::VectorXf& newSignal);

    /** Convolves the signal with kernels[kernel].

        @returns  signal.size() + kernel.size() - 1 samples, which stay until the next call; do not keep the
                  reference beyond that
        @throws   std::bad_alloc
    */
    Eigen::Ref<const Eigen::VectorXf> convolve (std::size_t kernel);

private:
    /** What belongs to one transform length. */
    struct Transform
    {
        Transform (int size, std::size_t kernelCount) : fft (RealFft::shared (size)), kernelSpectra (kernelCount) {}

        std::shared_ptr<const RealFft> fft;
        std::vector<Eigen::VectorXcf> kernelSpectra; // empty until the kernel is first used at this length
        Eigen::VectorXcf signalSpectrum;
        bool hasSignal = false; // whether signalSpectrum is that of the present signal
    };

    Transform& transformFor (std::size_t kernel);
    void transformPadded (const RealFft& fft, const Eigen::VectorXf& samples, Eigen::VectorXcf& spectrum);

    std::vector<Eigen::VectorXf> kernels;
    const Eigen::VectorXf* signal = nullptr;
    std::map<int, Transform> transforms;
    Eigen::VectorXf samples; // what goes into or comes out of a transform
    Eigen::VectorXcf product;
};

}
