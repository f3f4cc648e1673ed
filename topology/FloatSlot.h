// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>

#include "dsp/FIIRSection.h"

namespace veltra::topology {

/** Writes a channel's values into its place of a blob, as 32-bit IEEE floats in little-endian byte order, one
    behind the other. What does not fit is not written. Borrows the memory; one thread at a time.
*/
class FloatSlot
{
public:
    explicit FloatSlot (std::span<char> place) noexcept : rest (place) {}

    void write (std::span<const float> values) noexcept;

    /** Writes each section as a1, a2, b0, b1. */
    void write (std::span<const dsp::FIIRSection> sections) noexcept;

private:
    std::span<char> rest;
};

}
