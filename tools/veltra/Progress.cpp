#include "tools/veltra/Progress.h"

#include <algorithm>
#include <cmath>

#if defined(_WIN32)
 #include <io.h>
#else
 #include <unistd.h>
#endif

namespace veltra::host {

namespace {

constexpr int kBarWidth = 30;

double limited (double fraction) noexcept
{
    return fraction >= 0.0 ? std::min (fraction, 1.0) : 0.0; // no number: 0
}

}

Progress::Progress (std::FILE* streamToUse, bool isForTerminal) noexcept
    : stream (streamToUse), terminal (isForTerminal)
{
}

Progress::~Progress() { endLine(); }

bool Progress::isNews (double fraction) noexcept
{
    const int steps = terminal ? 200 : 10;
    const int step = static_cast<int> (limited (fraction) * steps);

    if (step == shownStep)
        return false;

    shownStep = step;
    return true;
}

void Progress::print (double fraction, const std::string& text)
{
    const int percent = static_cast<int> (std::floor (100.0 * limited (fraction)));

    if (! terminal)
    {
        std::fprintf (stream, "%3d %%  %s\n", percent, text.c_str());
        std::fflush (stream);
        return;
    }

    const auto line = "[" + bar (fraction, kBarWidth) + "] " + std::to_string (percent) + " %  " + text;
    const auto blanks = shownLength > line.size() ? shownLength - line.size() : 0;
    std::fprintf (stream, "\r%s%*s", line.c_str(), static_cast<int> (blanks), "");
    std::fflush (stream);
    shownLength = line.size();
}

void Progress::endLine()
{
    if (shownLength > 0)
        std::fputc ('\n', stream);

    std::fflush (stream);
    shownLength = 0;
}

bool isTerminal (std::FILE* stream) noexcept
{
   #if defined(_WIN32)
    return _isatty (_fileno (stream)) != 0;
   #else
    return isatty (fileno (stream)) != 0;
   #endif
}

std::string bar (double fraction, int width)
{
    const auto filled = static_cast<std::size_t> (std::lround (limited (fraction) * width));
    return std::string (filled, '#') + std::string (static_cast<std::size_t> (width) - filled, '.');
}

std::string readableBytes (double bytes)
{
    const char* unit = "B";

    for (const char* const larger : { "kB", "MB", "GB" })
    {
        if (bytes < 999.5)
            break;

        bytes /= 1000.0;
        unit = larger;
    }

    char text[32];
    const int decimals = *unit == 'B' || bytes >= 99.95 ? 0 : bytes >= 9.995 ? 1 : 2;
    std::snprintf (text, sizeof (text), "%.*f %s", decimals, bytes, unit);
    return text;
}

}
