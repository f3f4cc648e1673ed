// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Logging.h"

#include <memory>
#include <string>

#include <juce_core/juce_core.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "common/Log.h"
#include "common/Text.h"
#include "plugin/AppendFile.h"
#include "plugin/Files.h"

namespace veltra::plugin {

namespace {

/** The month of a moment, "2024-01", in local time. */
std::string monthOf (const log4cplus::helpers::Time& time)
{
    return log4cplus::helpers::getFormattedTime ("%Y-%m", time, false);
}

/** Writes to a file, of which each month has its own: with the first line of another month the file gets the old month's name
    behind its own. An earlier file of that name is kept under a number, up to ten of them.

    log4cplus has such an appender. It opens files by the ANSI code page on Windows, lets programs that the host starts inherit
    them, and takes no pipe. */
class MonthlyFileAppender final : public log4cplus::Appender
{
public:
    MonthlyFileAppender (const juce::File& fileToWrite, std::unique_ptr<AppendFile> opened)
        : file (fileToWrite),
          output (std::move (opened)),
          month (monthOf (log4cplus::helpers::now()))
    {
    }

    ~MonthlyFileAppender() override { destructorImpl(); }

    void close() override
    {
        output.reset();
        closed = true;
    }

private:
    void append (const log4cplus::spi::InternalLoggingEvent& event) override
    {
        startNewMonth (monthOf (event.getTimestamp()));

        if (output == nullptr)
            output = AppendFile::open (file);

        // Behind a line that was cut off, the next one begins on a line of its own.
        if (output != nullptr)
            isCut = ! output->write ((isCut ? "\n" : "") + formatEvent (event));
    }

    void startNewMonth (const std::string& newMonth)
    {
        if (newMonth == month)
            return;

        if (isOrdinaryFile (file))
        {
            constexpr int most = 10;
            const auto archiveName = file.getFileName() + "." + juce::String (month);
            const auto numbered = [&] (int number) {
                return file.getSiblingFile (archiveName + "." + juce::String (number));
            };
            const auto archive = file.getSiblingFile (archiveName);

            if (archive.exists())
            {
                for (int number = most - 1; number >= 1; --number)
                    numbered (number).moveFileTo (numbered (number + 1));

                archive.moveFileTo (numbered (1));
            }

            output.reset();
            file.moveFileTo (archive);
        }

        month = newMonth;
    }

    const juce::File file;
    std::unique_ptr<AppendFile> output; // null for as long as it cannot be opened
    std::string month;
    bool isCut = false;
};

}

void LogFiles::add (std::string_view path, std::int32_t level)
{
    path = path.substr (0, path.find ('\0'));

    if (path.empty() || toValidUtf8 (path) != path)
        return;

    const auto name = juce::String::fromUTF8 (path.data(), static_cast<int> (path.size()));
    const auto file = juce::File::getCurrentWorkingDirectory().getChildFile (name);

    if (file.getParentDirectory().createDirectory().failed())
        return;

    auto output = AppendFile::open (file);

    if (output == nullptr)
        return;

    log4cplus::SharedAppenderPtr appender (new MonthlyFileAppender (file, std::move (output)));
    appender->setName ("main");
    appender->setLayout (std::make_unique<log4cplus::PatternLayout> ("[%D{%Y-%m-%d %H:%M:%S.%q}] %m%n"));

    const std::lock_guard guard (mutex);
    appenders.push_back (appender);
    auto root = log4cplus::Logger::getRoot();
    levels = { levels ? levels->before : root.getLogLevel(), level };
    root.addAppender (appender);
    root.setLogLevel (level);
    setHasOwnAppender (true);
}

void LogFiles::restoreLevel()
{
    auto root = log4cplus::Logger::getRoot();

    if (levels && root.getLogLevel() == levels->set)
        root.setLogLevel (levels->before);

    levels.reset();
}

void LogFiles::stop()
{
    const std::lock_guard guard (mutex);
    setHasOwnAppender (false);
    log4cplus::Logger::getRoot().removeAllAppenders();
    appenders.clear();
    restoreLevel();
}

void LogFiles::forget() noexcept
{
    for (auto& appender : appenders)
        static_cast<void> (new (std::nothrow) log4cplus::SharedAppenderPtr (appender)); // one more owner, for good

    appenders.clear();
}

LogFiles::~LogFiles()
{
    setHasOwnAppender (false);

    for (auto& appender : appenders)
        log4cplus::Logger::getRoot().removeAppender (appender);

    if (! appenders.empty())
        restoreLevel();
}

}
