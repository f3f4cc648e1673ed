// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/Gnuplot.h"

#include "tools/ExitStatus.h"
#include "tools/output/OutputFile.h"
#include "tools/platform/Process.h"

namespace veltra::host {

namespace {

std::string terminalFor (const std::filesystem::path& file, unsigned width, unsigned height)
{
    const std::string size = std::to_string (width) + "," + std::to_string (height);

    if (file.extension() == ".svg" || file == "-")
        return "svg size " + size + " dynamic font 'sans-serif,12' background 'white'";

    if (file.extension() == ".png")
        return "pngcairo size " + size + " font 'sans-serif,10'";

    throw Failure (kExitUsage, "A picture's name ends in .svg or .png; " + file.string() + " does not.");
}

}

std::string gnuplotText (std::string_view text)
{
    std::string quoted = "'";

    for (const char c : text)
    {
        if (static_cast<unsigned char> (c) < ' ')
            continue; // a line end would end the command

        quoted += c;

        if (c == '\'')
            quoted += c;
    }

    return quoted + "'";
}

void drawPicture (const std::filesystem::path& file, unsigned width, unsigned height, const std::string& commands)
{
    const auto terminal = terminalFor (file, width, height);
    OutputFile output (file);
    const auto picture = platform::runProgram ({ "gnuplot" }, "set terminal " + terminal + "\n" + commands + "\n");

    if (! picture || picture->empty())
        throw Failure (kExitOutput, file.string() + " could not be drawn: is gnuplot installed?");

    output.stream() << *picture;
    output.complete();
}

}
