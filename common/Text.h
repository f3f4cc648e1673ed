// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

namespace veltra {

/** The text with every byte that is not part of a well-formed UTF-8 sequence replaced by "?".

    Text from files and from the network passes through here on its way to juce::String, whose character
    pointer runs past the end of a text that stops in the middle of a sequence.
*/
std::string toValidUtf8 (std::string_view text);

/** A text from outside as a juce::String: made valid as above, and up to its first NUL. */
juce::String juceText (std::string_view bytes);

/** A text from outside, made fit for one line of the log: control characters come out as escapes (\n, \r, \t, \x1b,
    \u0085) and bytes that are no UTF-8 as "?", so that nobody on the network can write lines of his own into the log or
    send commands to the terminal that shows it. All other text comes back as it is, backslashes included.

    @param limit  of a longer text so many bytes come back, and "..."
*/
std::string logText (std::string_view text, std::size_t limit = std::string_view::npos);

}
