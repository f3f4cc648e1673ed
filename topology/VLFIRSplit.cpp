// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRSplit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "dsp/BandSplitFilters.h"
#include "dsp/FftConvolve.h"
#include "dsp/RealFft.h"

namespace veltra::topology {

namespace {

using Eigen::Index;
using Eigen::VectorXf;

enum Kernel : std::size_t
{
    highPass,
    bandLimit
};

constexpr float cutOutPeak = 0.4f;
constexpr Index delay = dsp::kBandSplitDelay;
constexpr Index decimation = dsp::kDecimation;

template <std::size_t size>
VectorXf asVector (const std::array<float, size>& taps)
{
    return VectorXf::Map (taps.data(), size);
}

/** The band-limited response on the grid of the low rate. */
VectorXf decimate (const Eigen::Ref<const VectorXf>& bandLimited, Index responseLength, Index taps)
{
    VectorXf lowRate = VectorXf::Zero (taps);
    const Index available = std::min (taps, (responseLength + decimation - 1) / decimation);

    for (Index k = 0; k < available; ++k)
        lowRate[k] = bandLimited[dsp::kSplitFilterDelay + k * decimation] * static_cast<float> (decimation);

    return lowRate;
}

}

VLFIRSplitter::VLFIRSplitter (unsigned newTaps)
    : taps (newTaps),
      filters ({ asVector (dsp::kHighPassFilter), asVector (dsp::kSplitFilter) }),
      cutOut (newTaps, cutOutPeak)
{
}

VLFIRSplitter::Parts VLFIRSplitter::split (const VectorXf& h)
{
    Parts parts;
    filters.setSignal (h);
    dsp::setSize (highRate, h.size());
    highRate = filters.convolve (highPass).segment (delay, h.size());
    parts.lowRate = decimate (filters.convolve (bandLimit), h.size(), taps);

    // Keeps the high-rate delay, offset + 298, within three quarters of the taps.
    const int maxOffset = static_cast<int> (3 * taps / 4) - static_cast<int> (delay);
    parts.highRate = cutOut.extract (highRate, parts.offset, maxOffset);
    parts.cutOutAtLimit = static_cast<int> (parts.offset) == maxOffset;
    return parts;
}

double leadInLoss_dB (const VectorXf& h)
{
    // Only the response's first 298 samples reach the part that is lost.
    const VectorXf front = dsp::fftConvolve (h.head (std::min (h.size(), delay)), asVector (dsp::kHighPassFilter));
    const double lost = front.head (std::min (front.size(), delay)).cast<double>().squaredNorm();
    const double all = h.cast<double>().squaredNorm();

    return all > 0.0 ? 10.0 * std::log10 (lost / all) : -std::numeric_limits<double>::infinity();
}

}
