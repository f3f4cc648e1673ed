// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/StatusLine.h"

#include <algorithm>
#include <cmath>

#include "tools/platform/Process.h"

namespace veltra::host {

StatusLine::StatusLine (std::FILE* streamToUse, bool isForATerminal) noexcept
    : stream (streamToUse),
      terminal (isForATerminal)
{
}

StatusLine::~StatusLine() { endLine(); }

void StatusLine::show (const std::string& text)
{
    if (terminal)
    {
        const auto blanks = shownLength > text.size() ? shownLength - text.size() : 0;
        std::fprintf (stream, "\r%s%*s", text.c_str(), static_cast<int> (blanks), "");
        shownLength = text.size();
    }
    else
    {
        std::fprintf (stream, "%s\n", text.c_str());
    }

    std::fflush (stream);
}

void StatusLine::endLine()
{
    if (shownLength > 0)
        std::fputc ('\n', stream);

    std::fflush (stream);
    shownLength = 0;
}

bool isTerminal (std::FILE* stream) noexcept { return platform::isTerminal (stream); }

std::string bar (double fraction, int width)
{
    const double limited = fraction >= 0.0 ? std::min (fraction, 1.0) : 0.0; // 0 also for what is no number
    const auto filled = static_cast<std::size_t> (std::lround (limited * width));
    return std::string (filled, '#') + std::string (static_cast<std::size_t> (width) - filled, '.');
}

}
