// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "common/Log.h"

/** Collects what is logged during its life, from all threads, at TRACE and above; afterwards the log is silent. */
class LogLines
{
public:
    struct Line
    {
        std::string level, text;

        bool operator== (const Line&) const = default;
    };

    LogLines() : appender (new Appender)
    {
        log4cplus::Logger::getRoot().addAppender (appender);
        log4cplus::Logger::getRoot().setLogLevel (log4cplus::TRACE_LOG_LEVEL);
        veltra::setHasOwnAppender (true);
    }

    ~LogLines()
    {
        veltra::setHasOwnAppender (false);
        log4cplus::Logger::getRoot().setLogLevel (log4cplus::OFF_LOG_LEVEL);
        log4cplus::Logger::getRoot().removeAppender (appender);
    }

    LogLines (const LogLines&) = delete;
    LogLines& operator= (const LogLines&) = delete;

    std::vector<Line> all() const
    {
        const std::lock_guard guard (collector().mutex);
        return collector().lines;
    }

    int count (const std::string& level, const std::string& text) const
    {
        const auto lines = all();
        return static_cast<int> (std::count (lines.begin(), lines.end(), Line { level, text }));
    }

    bool contains (const std::string& level, const std::string& text) const { return count (level, text) > 0; }

private:
    struct Appender final : log4cplus::Appender
    {
        ~Appender() override { destructorImpl(); }

        void close() override { closed = true; }

        void append (const log4cplus::spi::InternalLoggingEvent& event) override
        {
            const std::lock_guard guard (mutex);
            lines.push_back ({ log4cplus::getLogLevelManager().toString (event.getLogLevel()), event.getMessage() });
        }

        mutable std::mutex mutex;
        std::vector<Line> lines;
    };

    Appender& collector() const { return static_cast<Appender&> (*appender); }

    log4cplus::SharedAppenderPtr appender;
};

/** For a failing assertion. */
inline void PrintTo (const LogLines::Line& line, std::ostream* out) { *out << line.level << ' ' << line.text; }
