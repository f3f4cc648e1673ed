// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include <Eigen/Core>

namespace veltra::topology {

/** One channel of the dual-rate structure as the device runs it. */
struct VLFIRChannel
{
    std::uint32_t id = 0;

    /** Factor at or below 1 by which the conversion scaled the channel's filter down, so that a boost does not
        exceed full scale. It is already in the taps: the device knows it and does not apply it again. */
    float gain = 1.0f;

    std::uint32_t highRateDelay = 0; ///< samples
    Eigen::VectorXf highRateTaps;
    Eigen::VectorXf lowRateTaps;
};

/** What the device plays for an input, by its signal model: the sum of

    - the high-rate path: the input delayed by highRateDelay, convolved with highRateTaps;
    - the low-rate path: the input through kRateFilter, every 16th sample of it from the first, convolved with
      lowRateTaps, 15 zeros put behind each sample, through kRateFilter again, times 16.

    A filter that the conversion splits without loss comes out 298 samples late. The low-rate path decimates, so
    the structure is not strictly time-invariant: an input that is shifted by other than a multiple of 16 samples
    gives a response that differs, about as far down as the stop band of kRateFilter.

    @param in  samples at the device's rate
    @returns   the sum, as long as the shorter of the two paths' outputs; at least as long as the input for the
               delays and taps that a conversion gives. A path without taps is silent
    @throws    std::bad_alloc
    Any thread.
*/
Eigen::VectorXf simulate (const Eigen::VectorXf& in, const VLFIRChannel& channel);

/** The whole response to an impulse at the first sample: as long as the longer of the two paths.
    @throws std::bad_alloc
    Any thread.
*/
Eigen::VectorXf impulseResponse (const VLFIRChannel& channel);

}
