// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

#include "dsp/FftConvolve.h"

namespace veltra::dsp {

/** Finds where the energy of a response sits and cuts out the stretch of fixed length that covers it best.

    The energy curve (the squared samples) is convolved with an asymmetric triangle of the window's length, and
    the window is laid so that the triangle's apex, at the sample length * peakFraction, falls on the maximum:
    a lone impulse ends up at that sample of the result. What lies outside of the response counts as zero.

    Keeps the triangle's spectrum between calls. Use an object from one thread at a time.
*/
class EnergyWindow
{
public:
    /** @param length        samples of the window, at most 2^30
        @param peakFraction  place of the apex, from 0 (first sample) to 1
        @throws              std::bad_alloc */
    EnergyWindow (unsigned length, float peakFraction);

    /** @param in         the response
        @param offsetOut  receives the first sample of the window in the response
        @param maxOffset  highest offset that may be chosen; zero or less means no limit
        @returns          in[offset] to in[offset + length - 1]
        @throws           std::bad_alloc */
    Eigen::VectorXf extract (const Eigen::VectorXf& in, unsigned& offsetOut, int maxOffset);

private:
    unsigned length;
    unsigned peak;
    FftConvolver triangle;
    Eigen::VectorXf energy;
};

/** One extraction with a window made for it: EnergyWindow (n, peakFraction).extract (in, offsetOut, maxOffset). */
Eigen::VectorXf extractEnergyWindow (const Eigen::VectorXf& in, unsigned n, float peakFraction, unsigned& offsetOut,
                                     int maxOffset);

}
