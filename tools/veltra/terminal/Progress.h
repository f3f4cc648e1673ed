// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "tools/veltra/terminal/StatusLine.h"

namespace veltra::host {

/** Shows how far a piece of work is: on a terminal as a bar, elsewhere not at all, and with --json also as an event
    "progress" for every twentieth of the work. */
class Progress
{
public:
    Progress() noexcept : line (stderr, isWatched (stderr)) {}

    /** As StatusLine's. */
    Progress (std::FILE* stream, bool terminal) noexcept : line (stream, terminal) {}

    /** Shows a state of the work when it differs enough from the one before.

        @param fraction  0 to 1; limited to that
        @param text      stands behind the bar; only asked for when something is shown
    */
    template <typename Text>
    void show (double fraction, Text&& text)
    {
        printEvent (fraction);

        if (line.isForTerminal() && isNews (fraction, kStepsInATerminal, shownStep))
            print (fraction, text());
    }

    void endLine() { line.endLine(); }

private:
    static constexpr int kStepsInATerminal = 200;

    static bool isNews (double fraction, int steps, int& lastStep) noexcept;
    void print (double fraction, const std::string& text);
    void printEvent (double fraction);

    StatusLine line;
    int shownStep = -1;
    int printedStep = -1;
};

/** A number of bytes as a person reads it: "812 B", "34.2 kB", "1.57 MB". */
std::string readableBytes (double bytes);

}
