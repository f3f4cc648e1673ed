// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <string>

namespace veltra::host {

/** Text that follows work in hand: on a terminal one line that is drawn anew, elsewhere a line for each text. */
class StatusLine
{
public:
    /** @param stream    borrowed
        @param terminal  whether a person watches the stream, see isTerminal
    */
    StatusLine (std::FILE* stream, bool terminal) noexcept;

    /** As endLine. */
    ~StatusLine();

    StatusLine (const StatusLine&) = delete;
    StatusLine& operator= (const StatusLine&) = delete;

    bool isForTerminal() const noexcept { return terminal; }

    void show (const std::string& text);

    /** Leaves the text that is there and ends its line, so that something else can be printed. */
    void endLine();

private:
    std::FILE* stream;
    bool terminal;
    std::size_t shownLength = 0;
};

/** Whether a stream goes to a terminal. */
bool isTerminal (std::FILE* stream) noexcept;

/** A bar of `width` characters, such as "#####.....", for a fraction that is limited to 0 to 1. */
std::string bar (double fraction, int width);

}
