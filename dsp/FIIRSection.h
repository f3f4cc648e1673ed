// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace veltra::dsp {

/** One second-order section of a bank that stands in parallel to a FIR filter, with the transfer function
    (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2). The order of the fields is that of filter descriptions and of
    device data.
*/
struct FIIRSection
{
    float a1 = 0.0f;
    float a2 = 0.0f;
    float b0 = 0.0f;
    float b1 = 0.0f;

    bool operator== (const FIIRSection&) const = default;
};

static_assert (sizeof (FIIRSection) == 4 * sizeof (float), "sections are read and written as rows of four floats");

}
