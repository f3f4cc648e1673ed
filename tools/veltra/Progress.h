#pragma once

#include <cstdio>
#include <string>

namespace veltra::host {

/** Shows how far a piece of work is: on a terminal as a bar that is redrawn in its line, elsewhere as a line for
    every tenth of the work. */
class Progress
{
public:
    /** @param stream    borrowed
        @param terminal  whether a person watches the stream, see isTerminal
    */
    Progress (std::FILE* stream, bool terminal) noexcept;

    /** Ends the bar's line if one is there. */
    ~Progress();

    Progress (const Progress&) = delete;
    Progress& operator= (const Progress&) = delete;

    /** Shows a state of the work when it differs enough from the one before.

        @param fraction  0 to 1
        @param text      stands behind the bar; only asked for when something is shown
    */
    template <typename Text>
    void show (double fraction, Text&& text)
    {
        if (isNews (fraction))
            print (fraction, text());
    }

    /** Ends the bar's line, so that something else can be printed. */
    void endLine();

private:
    bool isNews (double fraction) noexcept;
    void print (double fraction, const std::string& text);

    std::FILE* stream;
    bool terminal;
    int shownStep = -1;
    std::size_t shownLength = 0;
};

/** Whether a stream goes to a terminal. */
bool isTerminal (std::FILE* stream) noexcept;

/** A bar of `width` characters, such as "#####.....". */
std::string bar (double fraction, int width);

/** A number of bytes as a person reads it: "812 B", "34.2 kB", "1.57 MB". */
std::string readableBytes (double bytes);

}
