// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/LogAppender.h"

#include <memory>
#include <sstream>

#include <log4cplus/spi/loggingevent.h>

#include "common/Contain.h"

namespace veltra::plugin {

namespace {

constexpr int kKeptFiles = 10;

class MonthlyAppender final : public log4cplus::Appender
{
public:
    explicit MonthlyAppender (const juce::File& fileToWrite)
        : file (fileToWrite),
          stream (std::make_unique<juce::FileOutputStream> (file))
    {
    }

    ~MonthlyAppender() override { destructorImpl(); }

    void close() override
    {
        stream.reset();
        closed = true;
    }

protected:
    void append (const log4cplus::spi::InternalLoggingEvent& event) override
    {
        guarded ([&] {
            if (const auto now = monthOf (juce::Time::getCurrentTime()); now != month)
            {
                roll();
                month = now;
            }

            if (stream == nullptr || ! stream->openedOk())
                return;

            std::ostringstream line;
            layout->formatAndAppend (line, event);
            const auto text = line.str();
            stream->write (text.data(), text.size());
            stream->flush();
        });
    }

private:
    static juce::String monthOf (const juce::Time& time) { return time.formatted ("%Y-%m"); }

    /** As log4cplus names its files elsewhere: log.txt.2024-01, and log.txt.2024-01.1 and so on for earlier ones. */
    void roll()
    {
        stream.reset();
        const auto kept = file.getSiblingFile (file.getFileName() + "." + month);

        for (int number = kKeptFiles - 1; number >= 0; --number)
        {
            const auto from = number == 0 ? kept : numbered (kept, number);

            if (from.existsAsFile())
                from.moveFileTo (numbered (kept, number + 1));
        }

        file.moveFileTo (kept);
        stream = std::make_unique<juce::FileOutputStream> (file);
    }

    static juce::File numbered (const juce::File& kept, int number)
    {
        return kept.getSiblingFile (kept.getFileName() + "." + juce::String (number));
    }

    const juce::File file;
    juce::String month = monthOf (juce::Time::getCurrentTime());
    std::unique_ptr<juce::FileOutputStream> stream;
};

}

log4cplus::SharedAppenderPtr makeLogAppender (const juce::File& file)
{
    return log4cplus::SharedAppenderPtr (new MonthlyAppender (file));
}

}
