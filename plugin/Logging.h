// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>

namespace veltra::plugin {

/** The log files that the host asked for. Lines are written with VELTRA_LOG (common/Log.h) to log4cplus's root logger, which
    belongs to the whole process: the host may have appenders of its own there. Any thread. */
class LogFiles
{
public:
    LogFiles() = default;

    /** Closes those that are still open: the host unloaded the module without releasing its object. */
    ~LogFiles();

    LogFiles (const LogFiles&) = delete;
    LogFiles& operator= (const LogFiles&) = delete;

    /** Adds a file to the root logger and sets its level. Appends to a file that is there; starts a new one each
        month, keeping ten of one month. Each line is "[2024-01-31 23:59:59.999] text", in local time. A disk that is full costs
        the lines of that time.

        The file's folder is made when missing. A pipe that has a reader, a terminal or another device will do. Nothing
        changes when the path is a folder or cannot be written.

        @param path   UTF-8, absolute or relative to the current folder
        @param level  of log4cplus
    */
    void add (std::string_view path, std::int32_t level);

    /** Takes all appenders from the root logger, the host's own too. Its level is again what it was before add, unless
        the host has changed it meanwhile. */
    void stop();

    /** For a forked process: leaves everything as it is for good. */
    void forget() noexcept;

private:
    /** The root logger's level before the first add, and that of the last. */
    struct Levels
    {
        log4cplus::LogLevel before, set;
    };

    void restoreLevel();

    std::mutex mutex;
    std::vector<log4cplus::SharedAppenderPtr> appenders;
    std::optional<Levels> levels;
};

}
