// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/LogAppender.h"

#include <log4cplus/fileappender.h>

namespace veltra::plugin {

log4cplus::SharedAppenderPtr makeLogAppender (const juce::File& file)
{
    constexpr bool immediateFlush = true;
    constexpr int maxBackupIndex = 10;
    constexpr bool createFolders = true;
    constexpr bool rollOnClose = false; // the log stays at the path that the host gave

    // The monthly schedule, in spite of the class's name.
    return log4cplus::SharedAppenderPtr (
        new log4cplus::DailyRollingFileAppender (file.getFullPathName().toStdString(), log4cplus::MONTHLY,
                                                 immediateFlush, maxBackupIndex, createFolders, rollOnClose));
}

}
