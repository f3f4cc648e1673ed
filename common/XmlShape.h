#pragma once

#include <string_view>

namespace veltra {

/** Whether a parser that recurses once an element may be let loose on a text: all its tags are well-formed, and
    elements are nested no deeper than maxDepth. Names, order and closing tags are left to the parser.

    Runs in linear time, at the speed of memchr between tags, and does not recurse. Never says yes to a text in
    which the parser would see deeper nesting: what this scan cannot follow as the parser would is refused.
*/
bool isShallowXml (std::string_view text, int maxDepth) noexcept;

}
