// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/Gnuplot.h"

#include <cstdio>
#include <memory>

#include <signal.h>

#include "tools/ExitStatus.h"
#include "tools/veltra/terminal/OutputFile.h"

namespace veltra::host {

namespace {

std::string terminalFor (const std::filesystem::path& file, unsigned width, unsigned height)
{
    const std::string size = std::to_string (width) + "," + std::to_string (height);

    if (file.extension() == ".svg")
        return "svg size " + size + " dynamic font 'sans-serif,12' background 'white'";

    if (file.extension() == ".png")
        return "pngcairo size " + size + " font 'sans-serif,10'";

    throw Failure (kExitUsage, "A picture's name ends in .svg or .png; " + file.string() + " does not.");
}

/** Gives gnuplot its script.
    @returns  whether it ran and found nothing to complain of */
bool runGnuplot (const std::string& script)
{
    // A gnuplot that is missing or gives up closes the pipe while the script is still being written.
    struct IgnoreBrokenPipe
    {
        void (*const previous) (int) = ::signal (SIGPIPE, SIG_IGN);
        ~IgnoreBrokenPipe() { ::signal (SIGPIPE, previous); }
    } ignore;

    const auto pipe = ::popen ("exec gnuplot 2>/dev/null", "w");

    if (pipe == nullptr)
        return false;

    const bool written = std::fwrite (script.data(), 1, script.size(), pipe) == script.size();
    return ::pclose (pipe) == 0 && written;
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

    if (! runGnuplot ("set terminal " + terminal + "\nset output " + gnuplotText (output.temporaryPath().string())
                      + "\n" + commands + "\nunset output\n"))
        throw Failure (kExitOutput, file.string() + " could not be drawn: is gnuplot installed?");

    output.complete();
}

}
