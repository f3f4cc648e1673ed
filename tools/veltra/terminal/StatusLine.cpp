// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/StatusLine.h"

#include <algorithm>
#include <cmath>

#include "common/Text.h"
#include "tools/output/Json.h"
#include "tools/platform/Process.h"

namespace veltra::host {

namespace {

constexpr unsigned kUsualWidth = 80;

std::size_t characterCount (const std::string& validText)
{
    return static_cast<std::size_t> (std::ranges::count_if (
        validText, [] (char byte) { return (static_cast<unsigned char> (byte) & 0xC0) != 0x80; }));
}

}

StatusLine::StatusLine (std::FILE* streamToUse, bool isForATerminal) noexcept
    : stream (streamToUse),
      terminal (isForATerminal)
{
}

StatusLine::~StatusLine() { endLine(); }

void StatusLine::show (const std::string& text)
{
    if (! terminal)
        return;

    // The last column stays free: some terminals begin a new line when it is filled.
    const auto width = platform::terminalWidth (stream).value_or (kUsualWidth);
    const std::string shown (firstCharacters (text, std::max (width, 2u) - 1));
    const auto length = characterCount (shown);
    const auto covered = std::min (shownLength, std::size_t { std::max (width, 2u) - 1 });
    const auto blanks = covered > length ? covered - length : 0;
    std::fprintf (stream, "\r%s%*s", shown.c_str(), static_cast<int> (blanks), "");
    shownLength = length;
    std::fflush (stream);
}

void StatusLine::endLine()
{
    if (shownLength > 0)
        std::fputc ('\n', stream);

    std::fflush (stream);
    shownLength = 0;
}

bool isWatched (std::FILE* stream) noexcept { return ! outputForm().quiet && platform::isTerminal (stream); }

std::string bar (double fraction, int width)
{
    const double limited = fraction >= 0.0 ? std::min (fraction, 1.0) : 0.0; // 0 also for what is no number
    const auto filled = static_cast<std::size_t> (std::lround (limited * width));
    return std::string (filled, '#') + std::string (static_cast<std::size_t> (width) - filled, '.');
}

}
