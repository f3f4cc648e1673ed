// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "dsp/ResponseError.h"
#include "tools/output/Json.h"

namespace veltra::host {

/** A channel in a table of errors. */
struct ErrorRow
{
    std::string channel;
    std::vector<std::string> details; ///< one for each heading
    dsp::ResponseError error;
};

/** Prints a table with a row for each channel: details, the error over all, the error by octave.
    @param headings  of the details
*/
void printErrors (std::ostream& stream, const std::vector<std::string>& headings, const std::vector<ErrorRow>& rows);

/** An error for scripts: an object with "silent", "exact", "overall_dB" (null when it is not finite) and "octaves". */
Json objectOf (const dsp::ResponseError& error);

/** Explains the numbers of such tables; one line. */
extern const char* const kErrorLegend;

/** A number with a fixed count of decimals. What rounds to zero has no sign. */
std::string fixedText (double value, int decimals);

}
