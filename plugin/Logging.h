// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include <log4cplus/appender.h>

/** @file
    The module's log file. Lines are written with VELTRA_LOG (common/Log.h) to log4cplus's root logger, which
    belongs to the whole process: the host may have appenders of its own there. Call from one thread at a time.
*/

namespace veltra::plugin {

/** Turns the root logger off when it has no appender, so that no text is built and log4cplus does not complain
    on standard error. */
void silenceUnusedLog();

/** The log files that the host asked for. */
class LogFiles
{
public:
    LogFiles() = default;

    /** Closes those that are still open: the host unloaded the module without releasing its object. */
    ~LogFiles();

    LogFiles (const LogFiles&) = delete;
    LogFiles& operator= (const LogFiles&) = delete;

    /** Adds a file to the root logger and sets its level. Appends to a file that is there; starts a new one each
        month, keeping ten. Each line is "[2024-01-31 23:59:59.999] text", in local time.

        The file's folder is made when missing. Nothing changes when that fails, when the path is something else
        than a file, or when the file cannot be written.

        @param path   UTF-8, absolute or relative to the current folder
        @param level  of log4cplus
    */
    void add (std::string_view path, std::int32_t level);

    /** Takes all appenders from the root logger, the host's own too, and turns it off. */
    void stop();

private:
    std::vector<log4cplus::SharedAppenderPtr> appenders;
};

}
