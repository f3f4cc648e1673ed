// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

#include "dsp/EnergyWindow.h"
#include "dsp/FftConvolve.h"

namespace veltra::topology {

/** Splits full-range responses into the two short filters of the dual-rate structure: one that runs at the full
    rate and one of the same length that runs at a sixteenth of it (VLFIRModel.h describes how the device adds them).

    - Low rate: the response through kSplitFilter, every 16th sample, times 16: the response below Fs/32, over
      16 times as many samples as there are taps.
    - High rate: the response through kHighPassFilter, which is what the low-rate path does not carry, cut down to
      the stretch that holds most of its energy. That part of it which would have to play before the response's
      first sample is lost: see leadInLoss_dB.

    Keeps transforms between calls. Use an object from one thread at a time.
*/
class VLFIRSplitter
{
public:
    /** @param taps  T, taps of each of the two filters, from 1 to 2^29
        @throws      std::bad_alloc */
    explicit VLFIRSplitter (unsigned taps);

    struct Parts
    {
        Eigen::VectorXf highRate; ///< T taps
        Eigen::VectorXf lowRate;  ///< T taps
        unsigned offset;          ///< place of highRate in the full high-rate response
        bool cutOutAtLimit;       ///< the energy may lie later than the structure can reach
    };

    /** @param h  the response, not empty; what lies behind its end counts as zero
        @throws   std::bad_alloc */
    Parts split (const Eigen::VectorXf& h);

    /** The full high-rate response of the last split, as long as the response; stays until the next one. */
    const Eigen::VectorXf& fullHighRate() const noexcept { return highRate; }

private:
    unsigned taps;
    dsp::FftConvolver filters;
    dsp::EnergyWindow cutOut;
    Eigen::VectorXf highRate;
};

/** Energy of what a conversion loses at the front of a response, in dB relative to the response's energy: the
    high-rate part begins up to 298 samples before the response does, and the device cannot play it that early.
    A response with 298 samples of silence in front loses nothing.

    Above some -60 dB it outweighs what the structure costs anyway.

    @returns  -infinity for a silent or empty response
    @throws   std::bad_alloc */
double leadInLoss_dB (const Eigen::VectorXf& h);

}
