// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <vector>

#include <Eigen/Core>

#include "dsp/FIIRSection.h"
#include "dsp/ResidueFit.h"

namespace veltra::dsp {

/** Distance of a section's outermost pole from the origin. */
double poleRadius (double a1, double a2);

/** True if a section with these denominator coefficients has a pole on or outside the unit circle. A section is
    played with its rounded coefficients, so ask with the single-precision values. */
bool isUnstableSection (double a1, double a2);

/** The sum of modes as parallel sections, in this order: one section for each complex pole, one for each pair of
    successive real poles, one for the real pole that is left over, one for the direct term, then empty ones.

    A complex pole whose section would be unstable once its coefficients are rounded is pulled in by 0.9999, up
    to three times.

    @param count  number of sections, enough for what there is
*/
std::vector<FIIRSection> parallelSections (const Poles& poles, const Residues& residues, std::size_t count);

/** The first samples of the sections' common impulse response, computed in double precision. */
Eigen::VectorXd impulseResponse (const std::vector<FIIRSection>& sections, Eigen::Index length);

}
