#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <log4cplus/appender.h>

namespace veltra::test {

/** Listens to the root logger at TRACE while it lives. */
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    LogCapture (const LogCapture&) = delete;
    LogCapture& operator= (const LogCapture&) = delete;

    /** "ERROR text" of each line since the start or the last clear. */
    std::vector<std::string> lines() const;

    /** How many lines are exactly this one. */
    std::size_t count (const std::string& line) const;
    bool has (const std::string& line) const { return count (line) > 0; }

    void clear();

private:
    class Appender;

    log4cplus::SharedAppenderPtr appender;
    Appender& memory;
};

}
