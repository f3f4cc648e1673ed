// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

namespace veltra {

/** Reads the decimal number at the start of a text, as `atof` does in the "C" locale, whatever the process's
    locale is: leading white space and a sign are taken, reading stops at the first character that does not
    belong to the number, and a text that is not a number gives 0. Out-of-range values give 0 or infinity.
*/
double toDouble (std::string_view text) noexcept;

/** Reads the integer at the start of a text, as `atoi` does; values beyond 32 bits give the nearest bound. */
int toInt (std::string_view text) noexcept;

}
