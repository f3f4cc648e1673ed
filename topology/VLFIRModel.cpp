// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRModel.h"

#include <algorithm>

#include "dsp/BandSplitFilters.h"
#include "dsp/FftConvolve.h"

namespace veltra::topology {

namespace {

using Eigen::Index;
using Eigen::VectorXf;

constexpr Index decimation = dsp::kDecimation;

/** The full convolution. A signal that is nearly all zeros, such as an impulse on its way through the structure, is
    summed up directly in double precision: the rounding of a transform, some 130 dB below the response's energy,
    would hide what an impulse response is looked at for. */
VectorXf convolve (const VectorXf& signal, const Eigen::Ref<const VectorXf>& taps)
{
    constexpr Index worthATransform = 64; // multiplications for each sample of the result

    if (signal.size() == 0 || taps.size() == 0)
        return {};

    if ((signal.array() != 0.0f).count() * taps.size() > worthATransform * (signal.size() + taps.size()))
        return dsp::fftConvolve (signal, taps);

    const Eigen::VectorXd tapsInDouble = taps.cast<double>();
    Eigen::VectorXd sum = Eigen::VectorXd::Zero (signal.size() + taps.size() - 1);

    for (Index i = 0; i < signal.size(); ++i)
        if (signal[i] != 0.0f)
            sum.segment (i, taps.size()) += static_cast<double> (signal[i]) * tapsInDouble;

    return sum.cast<float>();
}

VectorXf throughRateFilter (const VectorXf& in)
{
    return convolve (in, VectorXf::Map (dsp::kRateFilter.data(), dsp::kRateFilter.size()));
}

/** A path without taps lets nothing through; one zero tap says so in terms of a convolution. */
VectorXf throughTaps (const VectorXf& in, const VectorXf& taps)
{
    return convolve (in, taps.size() > 0 ? taps : VectorXf (VectorXf::Zero (1)));
}

VectorXf lowRatePath (const VectorXf& in, const VectorXf& taps)
{
    const VectorXf bandLimited = throughRateFilter (in);
    const VectorXf decimated =
        VectorXf::Map (bandLimited.data(), bandLimited.size() / decimation, Eigen::InnerStride<decimation>());
    const VectorXf filtered = throughTaps (decimated, taps);

    VectorXf spread = VectorXf::Zero (filtered.size() * decimation);
    VectorXf::Map (spread.data(), filtered.size(), Eigen::InnerStride<decimation>()) = filtered;

    return static_cast<float> (decimation) * throughRateFilter (spread);
}

}

VectorXf simulate (const VectorXf& in, const VLFIRChannel& channel)
{
    const VectorXf lowRate = lowRatePath (in, channel.lowRateTaps);
    const VectorXf highRate = throughTaps (in, channel.highRateTaps);
    const Index delay = channel.highRateDelay;

    VectorXf sum = lowRate.head (std::min (lowRate.size(), delay + highRate.size()));
    const Index overlap = std::max<Index> (sum.size() - delay, 0);

    if (overlap > 0)
        sum.tail (overlap) += highRate.head (overlap);

    return sum;
}

VectorXf impulseResponse (const VLFIRChannel& channel)
{
    // The first band limit spreads an impulse over 299 samples; the decimator keeps the first and 18 more.
    constexpr Index rateTaps = static_cast<Index> (dsp::kRateFilter.size());
    const Index highRateEnd = channel.highRateDelay + channel.highRateTaps.size();
    const Index lowRateEnd = ((rateTaps - 1) / decimation + channel.lowRateTaps.size() - 1) * decimation + rateTaps;
    const Index length = std::max ({ highRateEnd, lowRateEnd, Index { 1 } });

    return simulate (VectorXf::Unit (length, 0), channel).head (length);
}

}
