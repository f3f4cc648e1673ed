#include "tests/plugin/LogCapture.h"

#include <algorithm>

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

namespace veltra::test {

class LogCapture::Appender final : public log4cplus::Appender
{
public:
    ~Appender() override { destructorImpl(); }

    void close() override { closed = true; }

    mutable std::mutex lock;
    std::vector<std::string> lines;

protected:
    void append (const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const std::lock_guard guard (lock);
        lines.push_back (log4cplus::getLogLevelManager().toString (event.getLogLevel()) + " " + event.getMessage());
    }
};

LogCapture::LogCapture() : appender (new Appender), memory (static_cast<Appender&> (*appender))
{
    log4cplus::Logger::getRoot().addAppender (appender);
    log4cplus::Logger::getRoot().setLogLevel (log4cplus::TRACE_LOG_LEVEL);
}

LogCapture::~LogCapture()
{
    log4cplus::Logger::getRoot().removeAppender (appender);
    log4cplus::Logger::getRoot().setLogLevel (log4cplus::OFF_LOG_LEVEL);
}

std::vector<std::string> LogCapture::lines() const
{
    const std::lock_guard guard (memory.lock);
    return memory.lines;
}

std::size_t LogCapture::count (const std::string& line) const
{
    const auto all = lines();
    return static_cast<std::size_t> (std::count (all.begin(), all.end(), line));
}

void LogCapture::clear()
{
    const std::lock_guard guard (memory.lock);
    memory.lines.clear();
}

}
