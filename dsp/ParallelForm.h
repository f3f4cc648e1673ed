// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <span>
#include <vector>

#include <Eigen/Core>

#include "dsp/Biquad.h"
#include "dsp/FIIRSection.h"

namespace veltra::dsp {

/** A cascade as a receiver with taps and parallel sections plays it. */
struct ParallelForm
{
    Eigen::VectorXf taps; ///< the first samples of the response
    std::vector<FIIRSection> sections;
    double error_dB = 0.0; ///< largest deviation from the cascade, see parallelForm
};

/** Largest deviation that parallelForm accepts. */
inline constexpr double kParallelTolerance_dB = 0.01;

/** Expands a cascade into taps and parallel sections that take the input as many samples later: the delayed form of the
    partial fractions (B. Bank, "Converting infinite impulse response filters to parallel form", IEEE Signal Processing
    Magazine 35(3), 2018), in double precision, rounded once.

    A pole near 0 Hz moves by up to some per cent of its frequency when its coefficients are rounded. Where that shows, the
    numerators are fitted to the rounded poles by least squares on a logarithmic frequency axis, and poles that are not yet
    met well enough get a section at a neighbouring pole of single precision beside theirs.

    The deviation is that of the magnitude from 10 Hz to half the sample rate; where the cascade is more than 90 dB below its
    maximum, it is compared with -90 dB of that instead. All sections are stable.

    @param cascade     stable sections; those that change nothing are left out
    @param gain        linear
    @param tapCount    1 or more
    @param sampleRate  in Hz
    @returns           nothing when poles of different sections (nearly) coincide, when the cascade has more zeros than the
                       taps and poles can carry, or when kParallelTolerance_dB is not met
    @throws            std::bad_alloc
    Any thread.
*/
std::optional<ParallelForm> parallelForm (std::span<const Biquad> cascade, double gain, Eigen::Index tapCount,
                                          double sampleRate);

}
