// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Scratch.h"

namespace veltra::host {

/** How a program ended and what it printed. */
struct Ending
{
    int status = -1; ///< exit status, or -1
    int signal = 0;  ///< the signal that ended it, or 0
    std::string out;
    std::string err;
};

/** A program running as a child of the test, its output going to files in the given folder. */
class Program : public ScratchTest
{
protected:
    ~Program() override { sendSignal (SIGKILL); } // a failed assertion left it running

    void start (const std::vector<std::string>& words) { process.emplace (words, path ("out"), path ("err")); }

    void sendSignal (int number) const
    {
        if (process)
            process->signal (number);
    }

    /** Waits until a file holds a text; fails the test after 30 s. */
    void waitFor (const std::string& file, const std::string& text) const
    {
        for (int i = 0; i < 3000; ++i)
        {
            if (read (path (file)).find (text) != std::string::npos)
                return;

            std::this_thread::sleep_for (std::chrono::milliseconds (10));
        }

        FAIL() << "No '" << text << "' in " << file << ": " << read (path (file)) << read (path ("err"));
    }

    Ending finish()
    {
        const int status = process->wait();
        return { WIFEXITED (status) ? WEXITSTATUS (status) : -1, WIFSIGNALED (status) ? WTERMSIG (status) : 0,
                 read (path ("out")), read (path ("err")) };
    }

    Ending run (const std::vector<std::string>& words)
    {
        start (words);
        return finish();
    }

private:
    std::optional<ChildProcess> process;
};

}
