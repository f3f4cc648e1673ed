// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "tools/output/Json.h"

namespace veltra::host {

namespace {

constexpr int kBarWidth = 30;
constexpr int kEvents = 20;

double limited (double fraction) noexcept
{
    return fraction >= 0.0 ? std::min (fraction, 1.0) : 0.0; // 0 also for what is no number
}

}

bool Progress::isNews (double fraction, int steps, int& lastStep) noexcept
{
    const int step = static_cast<int> (limited (fraction) * steps);
    return std::exchange (lastStep, step) != step;
}

void Progress::printEvent (double fraction)
{
    if (outputForm().json && ! outputForm().quiet && isNews (fraction, kEvents, printedStep))
        printJson ("progress", { { "fraction", limited (fraction) } });
}

void Progress::print (double fraction, const std::string& text)
{
    char percent[16];
    std::snprintf (percent, sizeof (percent), "%3.0f %%  ", std::floor (100.0 * limited (fraction)));
    line.show ("[" + bar (fraction, kBarWidth) + "] " + percent + text);
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
