// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "plugin/Logging.h"
#include "tests/support/Scratch.h"

namespace veltra {

namespace {

class LogMonths : public host::ScratchTest
{
protected:
    /** A line of some day's noon, counted from today. */
    static void writeLine (const std::string& text, int days)
    {
        const auto time = log4cplus::helpers::now() + std::chrono::hours (24 * days);
        const log4cplus::spi::InternalLoggingEvent event ("root", log4cplus::INFO_LOG_LEVEL, "", {}, text, "", "", time,
                                                          "", 0);
        log4cplus::Logger::getRoot().callAppenders (event);
    }

    static std::string month (int days)
    {
        return log4cplus::helpers::getFormattedTime ("%Y-%m",
                                                     log4cplus::helpers::now() + std::chrono::hours (24 * days), false);
    }
};

}

TEST_F (LogMonths, AMonthsFirstLineMovesTheOldFileAndKeepsEarlierOnesOfThatName)
{
    const auto old = "log." + month (0);
    write (old, "earlier\n");
    write (old + ".1", "earliest\n");
    plugin::LogFiles files;
    files.add (path ("log").string(), log4cplus::INFO_LOG_LEVEL);
    writeLine ("this month", 0);
    writeLine ("next month", 32);
    files.stop();

    EXPECT_NE (std::string::npos, read (path ("log")).find ("] next month\n"));
    EXPECT_NE (std::string::npos, read (path (old)).find ("] this month\n"));
    EXPECT_EQ ("earlier\n", read (path (old + ".1")));
    EXPECT_EQ ("earliest\n", read (path (old + ".2")));
}

}
