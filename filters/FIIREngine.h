// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include <Eigen/Core>

#include "dsp/FIIRSection.h"

namespace veltra::filters {

/** A FIR filter of T taps h with a bank of second-order sections in parallel, which take its input delayed by T:

        y[n] = sum of h[k] x[n-k] over k  +  sum of s[n] over the sections
        s[n] = b0 x[n-T] + b1 x[n-T-1] - a1 s[n-1] - a2 s[n-2]

    Made for impulse responses, that is for signals of mostly zeros: the taps cost T operations for each sample that
    is not zero, the sections a few for each sample behind the first such sample. A unit impulse comes out with the
    taps as they went in, bit by bit.

    Taps work in single precision. Sections work in double precision (see dsp::SectionBank), and only their sum is
    rounded to float.

    One thread at a time.
*/
class FIIREngine
{
public:
    FIIREngine() noexcept;
    ~FIIREngine();

    FIIREngine (const FIIREngine&) = delete;
    FIIREngine& operator= (const FIIREngine&) = delete;

    /** Takes a copy of the taps. */
    void setTaps (const Eigen::VectorXf& newTaps);

    /** Adds a section to the bank; one of zeros only is left out. */
    void addSection (const dsp::FIIRSection& section);

    /** Filters a signal in place, from rest.
        @throws  std::bad_alloc
    */
    void process (Eigen::VectorXf& signal) const;

private:
    /** Distinguishes a living engine from a stale one in a debugger or a memory dump. */
    volatile std::uint32_t mark;

    Eigen::VectorXf taps;
    dsp::SectionBank sections;
};

}
