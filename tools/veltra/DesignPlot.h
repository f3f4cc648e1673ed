#pragma once

#include <filesystem>

#include "tools/veltra/FilterDesign.h"

namespace veltra::host {

/** Draws the wanted and the designed response, and their difference by octave, as an SVG picture. The program
    gnuplot does the drawing. An existing file is replaced.
    @throws  Failure (kExitOutput)
*/
void plotDesign (const std::filesystem::path& file, const DesignedResponse& design);

}
