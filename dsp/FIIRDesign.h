// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include "dsp/FIIRSection.h"

namespace veltra::dsp {

/** A long impulse response as a short FIR filter with parallel second-order sections behind it. */
struct FIIRDesign
{
    Eigen::VectorXf fir;               ///< the first samples of the response, unchanged
    std::vector<FIIRSection> sections; ///< fed with the input delayed by fir.size() samples; their sum models the rest
};

/** The most sections that a design can have: it finds 2 sections - 2 modes in a matrix of 511 rows. */
constexpr std::uint32_t maxDesignSections = 256;

/** Designs the FIIR form of an impulse response: keeps its first samples and models the rest by a sum of decaying
    modes. The modes are found by Kung's Hankel realisation on a frequency-warped copy of the rest, so that most
    of them go where hearing is finest; their weights are then fitted to the unwarped response by least squares.
    docs/fiir-design.md describes the method with its literature.

    Sections come in this order: pairs of conjugate poles, pairs of real poles, a real pole left over, the direct
    term, all-zero sections up to the number asked for. None is unstable with its rounded coefficients. A response that
    consists of fewer modes than the sections could hold leaves rounding to decide on the others; the design then
    takes about ten times as long and keeps the best of several solutions. It also does so where a solution would miss
    the response by more than silence does.

    @param in          impulse response, longer than nTaps, all finite
    @param nTaps       samples to keep
    @param nSections   1 to maxDesignSections
    @param sampleRate  in Hz, above 0
    @returns           nTaps taps and nSections sections, all finite
    @throws            std::invalid_argument with a readable reason where a condition above is not met
    @throws            std::bad_alloc

    Safe to call from several threads at once. Memory: about 15 MB and 24 bytes for each sample of `in`. Time: grows
    with in.size() and, beyond some 30 sections, with the square of nSections.
*/
FIIRDesign designFIIR (const Eigen::VectorXf& in, std::uint32_t nTaps, std::uint32_t nSections, double sampleRate);

}
