// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "dsp/FIIRDesign.h"

namespace veltra::dsp {

/** Fits the numerators of a design once more. designFIIR computes them for its poles in double precision and rounds
    both afterwards; at low frequencies that rounding moves poles by as much as the distance between them. Here b0 and
    b1 of all sections are fitted by least squares to what the sections play with a1 and a2 as they are.

    @param in      the response that the design was made from
    @param design  from designFIIR
    @returns       the design with other numerators; as it came when they do not fit better
    @throws        std::bad_alloc
    Safe to call from several threads at once. Takes about as long as the design's own fit, and a
    double for each sample and each numerator coefficient.
*/
FIIRDesign refitNumerators (const Eigen::VectorXf& in, FIIRDesign design);

}
