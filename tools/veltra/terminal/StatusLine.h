// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <string>

namespace veltra::host {

/** Text that follows work in hand: on a terminal one line that is drawn anew, elsewhere nothing. */
class StatusLine
{
public:
    /** @param stream    borrowed
        @param terminal  whether a person watches the stream, see isWatched
    */
    StatusLine (std::FILE* stream, bool terminal) noexcept;

    /** As endLine. */
    ~StatusLine();

    StatusLine (const StatusLine&) = delete;
    StatusLine& operator= (const StatusLine&) = delete;

    bool isForTerminal() const noexcept { return terminal; }

    /** @param text  valid UTF-8; cut to the terminal's width, since a longer one could not be drawn anew */
    void show (const std::string& text);

    /** Leaves the text that is there and ends its line, so that something else can be printed. */
    void endLine();

private:
    std::FILE* stream;
    bool terminal;
    std::size_t shownLength = 0; // characters
};

/** Whether progress on a stream is for anybody: it goes to a terminal, and --quiet is not given. */
bool isWatched (std::FILE* stream) noexcept;

/** A bar of `width` characters, such as "#####.....", for a fraction that is limited to 0 to 1. */
std::string bar (double fraction, int width);

}
