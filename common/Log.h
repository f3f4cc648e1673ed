// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The module's log lines. They go to log4cplus's root logger with the file and line of the writer; a line's
    text is built only when its level is enabled, so the macro's argument may be expensive.

        VELTRA_LOG (INFO, "Device is specified as " << address << ", skipping UPnP search");

    Levels: TRACE, DEBUG, INFO, WARN, ERROR, FATAL. Any thread. Never throws: destructors and the roots of threads log,
    and a line that finds no memory is lost, not the process. Numbers look the same whatever C++ locale the host has set.

    The root logger belongs to the whole process. While it has no appender nothing is logged, whatever its level:
    log4cplus would complain on standard error.
*/

#include <locale>
#include <sstream>
#include <string>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "common/GuestProcess.h"

namespace veltra {

/** Whether a line of this level of log4cplus reaches anybody. */
bool isLogged (log4cplus::LogLevel level);

/** Says whether whoever calls has an appender of its own at the root logger, so that it need not be asked for each line. */
void setHasOwnAppender (bool hasOne) noexcept;

/** Collects the text of one line. log4cplus's own stream would write numbers by the host's locale. */
class LogLine
{
public:
    LogLine() { stream.imbue (std::locale::classic()); }

    template <class Value>
    LogLine& operator<< (const Value& value)
    {
        stream << value;
        return *this;
    }

    std::string text() const { return stream.str(); }

private:
    std::ostringstream stream;
};

}

#define VELTRA_LOG(level, words)                                                                                       \
    do                                                                                                                 \
    {                                                                                                                  \
        try                                                                                                            \
        {                                                                                                              \
            const ::veltra::NoCancellation untilItIsWritten;                                                           \
                                                                                                                       \
            if (::veltra::isLogged (::log4cplus::level##_LOG_LEVEL))                                                   \
                LOG4CPLUS_##level##_STR (::log4cplus::Logger::getRoot(), (::veltra::LogLine() << words).text());       \
        }                                                                                                              \
        catch (...)                                                                                                    \
        {                                                                                                              \
        }                                                                                                              \
    } while (false)
