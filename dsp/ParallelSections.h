// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <vector>

#include "dsp/FIIRSection.h"
#include "dsp/ResidueFit.h"

namespace veltra::dsp {

/** The sum of modes as parallel sections, in this order: one section for each complex pole, one for each pair of
    successive real poles, one for the real pole that is left over, one for the direct term, then empty ones.

    The poles of a section that would be unstable once its coefficients are rounded are pulled in by 0.9999, up to
    three times, which is enough for poles that unwarpPoles gives; their residues stay.

    @param count  number of sections, enough for what there is
*/
std::vector<FIIRSection> parallelSections (const Poles& poles, const Residues& residues, std::size_t count);

}
