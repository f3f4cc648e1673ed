// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ConnectionLog.h"

#include <fstream>
#include <memory>

#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>

#include "common/Log.h"
#include "tools/ExitStatus.h"

namespace veltra::host {

ConnectionLog::ConnectionLog (const std::filesystem::path& file, int level)
{
    auto root = log4cplus::Logger::getRoot();
    root.setLogLevel (log4cplus::OFF_LOG_LEVEL);

    if (file.empty())
        return;

    // log4cplus would print its own message about a file that it cannot open.
    if (! std::ofstream (file, std::ios::app))
        throw Failure (kExitOutput, "The log " + file.string() + " cannot be written.");

    const log4cplus::SharedAppenderPtr appender (
        std::make_unique<log4cplus::FileAppender> (file.string(), std::ios_base::app).release());
    appender->setLayout (std::make_unique<log4cplus::PatternLayout> ("[%D{%Y-%m-%d %H:%M:%S.%q}] %m%n"));
    root.addAppender (appender);
    root.setLogLevel (level);
}

ConnectionLog::~ConnectionLog()
{
    log4cplus::Logger::getRoot().setLogLevel (log4cplus::OFF_LOG_LEVEL);
    log4cplus::Logger::getRoot().removeAllAppenders();
}

}
