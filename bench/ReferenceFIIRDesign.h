// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

#include "dsp/FIIRDesign.h"

namespace veltra::dsp::reference {

/** The design of designFIIR in its plainest form, step by step and without regard to time and memory: Jacobi
    decompositions throughout, the whole matrix of modes in complex numbers, powers by the power function. What
    ships is measured against it, in values and in time. The preconditions are the caller's business.
*/
FIIRDesign designFIIR (const Eigen::VectorXf& in, unsigned nTaps, unsigned nSections, double sampleRate);

}
