// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace veltra::host {

/** A text as gnuplot takes it literally, with its quotes. */
std::string gnuplotText (std::string_view text);

/** Draws a picture with the program gnuplot.

    @param file       where to write it, see OutputFile; .svg or .png by its extension, "-" is an SVG on standard output
    @param width      in pixels
    @param height     in pixels
    @param commands   a gnuplot script, without terminal and output
    @throws           Failure: kExitUsage for another extension, kExitOutput when the picture cannot be made
*/
void drawPicture (const std::filesystem::path& file, unsigned width, unsigned height, const std::string& commands);

}
