// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The module's log lines. They go to log4cplus's root logger with the file and line of the writer; a line's
    text is built only when its level is enabled, so an expensive text may stand in the macro's argument.

        VELTRA_LOG (INFO, "Device is specified as " << address << ", skipping UPnP search");

    Levels: TRACE, DEBUG, INFO, WARN, ERROR, FATAL. Any thread. Never throws: destructors and the roots of threads log,
    and a line that finds no memory is lost, not the process.
*/

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#define VELTRA_LOG(level, text)                                                                                        \
    do                                                                                                                 \
    {                                                                                                                  \
        try                                                                                                            \
        {                                                                                                              \
            LOG4CPLUS_##level (::log4cplus::Logger::getRoot(), text);                                                  \
        }                                                                                                              \
        catch (...)                                                                                                    \
        {                                                                                                              \
        }                                                                                                              \
    } while (false)
