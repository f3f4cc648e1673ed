// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "tools/veltra/filters/FilterDesign.h"

namespace veltra::host {

/** Draws the wanted and the designed response, and their difference by octave.
    @param file  .svg or .png; replaced when it exists
    @throws      Failure (kExitUsage, kExitOutput)
*/
void plotDesign (const std::filesystem::path& file, const DesignedResponse& design);

}
