// SPDX-License-Identifier: GPL-3.0-or-later

#define EIGEN_FFTW_DEFAULT // the reference below is Eigen's front end over the same library

#include <unsupported/Eigen/FFT>

#include "dsp/FftConvolve.h"
#include "dsp/RealFft.h"
#include "tests/support/Testing.h"

namespace {

using Eigen::VectorXf;
using veltra::dsp::fftConvolve;
using veltra::dsp::FftConvolver;

VectorXf noise (Eigen::Index size, unsigned seed)
{
    std::mt19937 generator (seed);
    std::uniform_real_distribution<float> distribution (-1.0f, 1.0f);
    return VectorXf::NullaryExpr (size, [&] { return distribution (generator); });
}

VectorXf convolveDirectly (const VectorXf& a, const VectorXf& b)
{
    Eigen::VectorXd sum = Eigen::VectorXd::Zero (a.size() + b.size() - 1);

    for (Eigen::Index i = 0; i < a.size(); ++i)
        sum.segment (i, b.size()) += static_cast<double> (a[i]) * b.cast<double>();

    return sum.cast<float>();
}

/** The convolution as Eigen's front end computes it, with plans and buffers of its own. */
VectorXf convolveByEigen (const VectorXf& a, const VectorXf& b, int size)
{
    Eigen::FFT<float> fft;
    fft.SetFlag (Eigen::FFT<float>::HalfSpectrum);

    VectorXf paddedA = VectorXf::Zero (size), paddedB = VectorXf::Zero (size), result (size);
    paddedA.head (a.size()) = a;
    paddedB.head (b.size()) = b;

    Eigen::VectorXcf spectrumA, spectrumB;
    fft.fwd (spectrumA, paddedA);
    fft.fwd (spectrumB, paddedB);
    fft.inv (result, spectrumA.cwiseProduct (spectrumB).eval(), size);
    return result.head (a.size() + b.size() - 1);
}

TEST (FftConvolve, EqualsTheDirectSumUpToSinglePrecision)
{
    for (const auto& [sizeA, sizeB] :
         { std::pair { 1, 1 }, { 1, 2 }, { 2, 1 }, { 2, 2 }, { 3, 3 }, { 100, 29 }, { 29, 100 }, { 1000, 299 } })
    {
        const VectorXf a = noise (sizeA, 1), b = noise (sizeB, 2);
        const VectorXf expected = convolveDirectly (a, b), actual = fftConvolve (a, b);
        ASSERT_EQ (expected.size(), actual.size());
        // The rounding of a transform is some 140 dB below the largest values.
        EXPECT_LT ((expected - actual).cwiseAbs().maxCoeff(), 1e-6f * (a.norm() * b.norm())) << sizeA << " " << sizeB;
        EXPECT_EQ (0, fftConvolve (VectorXf(), b).size() + fftConvolve (a, VectorXf()).size());
    }
}

TEST (FftConvolve, TheTransformIsTheNextPowerOfTwo)
{
    using veltra::dsp::convolutionFftSize;
    EXPECT_EQ (1, convolutionFftSize (1, 1));
    EXPECT_EQ (128, convolutionFftSize (100, 29));
    EXPECT_EQ (256, convolutionFftSize (101, 29));
    EXPECT_EQ (65536, convolutionFftSize (48000, 597));
    EXPECT_EQ (1 << 30, convolutionFftSize (1 << 30, 1));
    EXPECT_THROW (convolutionFftSize (1 << 30, 2), std::bad_alloc);
    EXPECT_THROW (convolutionFftSize (Eigen::Index { 1 } << 62, Eigen::Index { 1 } << 62), std::bad_alloc);
}

TEST (FftConvolve, TheValuesAreThoseOfEigensFrontEnd)
{
    for (const auto& [sizeA, sizeB, size] : { std::tuple { 100, 29, 128 }, { 4000, 597, 8192 }, { 48000, 321, 65536 } })
    {
        const VectorXf a = noise (sizeA, 6), b = noise (sizeB, 7);
        EXPECT_EQ (convolveByEigen (a, b, size), fftConvolve (a, b)) << sizeA;
    }
}

TEST (FftConvolver, KeptSpectraGiveTheValuesOfFftConvolve)
{
    const VectorXf shortKernel = noise (321, 8), longKernel = noise (597, 9);
    FftConvolver convolver ({ shortKernel, longKernel, VectorXf() });

    // 3600 samples need 4096 with the short kernel and 8192 with the long one; lengths come back later.
    for (const int size : { 4000, 3600, 1, 600, 4000, 3600 })
    {
        const VectorXf signal = noise (size, 10 + static_cast<unsigned> (size));
        convolver.setSignal (signal);
        EXPECT_EQ (fftConvolve (signal, longKernel), VectorXf (convolver.convolve (1))) << size;
        EXPECT_EQ (fftConvolve (signal, shortKernel), VectorXf (convolver.convolve (0))) << size;
        EXPECT_EQ (fftConvolve (signal, longKernel), VectorXf (convolver.convolve (1))) << size;
        EXPECT_EQ (0, convolver.convolve (2).size());
    }
}

TEST (FftConvolve, ThreadsMayPlanAndConvolveAtOnce)
{
    std::vector<std::thread> threads;
    std::vector<int> wrong (4, 0);

    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back ([t, &wrong] {
            const VectorXf a = noise (500, t), b = noise (200, t + 100), expected = fftConvolve (a, b);

            for (int i = 0; i < 200; ++i)
            {
                const veltra::dsp::RealFft plannedAnew (1024);
                wrong[t] += fftConvolve (a, b) == expected ? 0 : 1;
            }
        });

    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ (std::vector<int> (4, 0), wrong);
}

}
