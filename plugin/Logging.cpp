// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Logging.h"

#include <memory>

#include <juce_core/juce_core.h>
#include <log4cplus/layout.h>

#include "common/Log.h"
#include "common/Text.h"
#include "plugin/Files.h"
#include "plugin/LogAppender.h"

namespace veltra::plugin {

namespace {

/** Also makes the file. log4cplus would report a failure on standard error. */
bool canBeWritten (const juce::File& file)
{
    return (! file.exists() || isOrdinaryFile (file)) && juce::FileOutputStream (file).openedOk();
}

}

void silenceUnusedLog()
{
    auto root = log4cplus::Logger::getRoot();

    if (root.getAllAppenders().empty())
        root.setLogLevel (log4cplus::OFF_LOG_LEVEL);
}

void LogFiles::add (std::string_view path, std::int32_t level)
{
    path = path.substr (0, path.find ('\0'));

    if (path.empty() || toValidUtf8 (path) != path)
        return;

    const auto name = juce::String::fromUTF8 (path.data(), static_cast<int> (path.size()));
    const auto file = juce::File::getCurrentWorkingDirectory().getChildFile (name);

    if (file.getParentDirectory().createDirectory().failed() || ! canBeWritten (file))
        return;

    const auto appender = makeLogAppender (file);
    appender->setName ("main");
    appender->setLayout (std::make_unique<log4cplus::PatternLayout> ("[%D{%Y-%m-%d %H:%M:%S.%q}] %m%n"));

    appenders.push_back (appender);
    auto root = log4cplus::Logger::getRoot();
    root.addAppender (appender);
    root.setLogLevel (level);
}

void LogFiles::stop()
{
    log4cplus::Logger::getRoot().removeAllAppenders();
    appenders.clear();
    silenceUnusedLog();
}

LogFiles::~LogFiles()
{
    for (auto& appender : appenders)
        log4cplus::Logger::getRoot().removeAppender (appender);

    silenceUnusedLog();
}

}
