// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

namespace veltra::topology {

/** A number as the device's processor takes it: two's complement with a fixed count of fraction bits.

    The arithmetic is single precision throughout, so the low bits of a converted number are those of a 32-bit
    float: value * 2^fractionBits, plus 0.5, rounded down. What lies below -2^31 or above 2^31 counts as clipped
    and is set to that bound; 2^31 itself, clipped or not, wraps to 0x80000000, the most negative word, because
    that is what the processor's own conversion makes of it and what existing devices receive. A value that is
    not a number becomes 0 and counts as clipped.

    @param fractionBits  from 0 to 31
    @param clipCount     goes up by one when the value is clipped
*/
std::uint32_t toFixed (float value, int fractionBits, int& clipCount) noexcept;

/** The value of a word; exact for every word that toFixed gives. */
float fromFixed (std::uint32_t word, int fractionBits) noexcept;

}
