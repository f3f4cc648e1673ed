// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <juce_core/juce_core.h>
#include <log4cplus/appender.h>

namespace veltra::plugin {

/** Appends log lines to a file, each at once, and starts a new file each month, keeping ten. One source for each kind of
    operating system: on Windows log4cplus cannot open a file whose name the system's code page does not have. */
log4cplus::SharedAppenderPtr makeLogAppender (const juce::File& file);

}
