#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace veltra {

/** A text from outside, made fit for one line of the log: control characters come out as escapes (\n, \r, \t, \x1b,
    \u0085) and bytes that are no UTF-8 as "?", so that nobody on the network can write lines of his own into the log or
    send commands to the terminal that shows it. All other text comes back as it is, backslashes included.

    @param limit  of a longer text so many bytes come back, and "..."
*/
std::string logText (std::string_view text, std::size_t limit = std::string_view::npos);

}
