#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

/** @file
    Texts of a device or a filter description on their way to the host. Neither is trusted to be valid UTF-8:
    a sequence that is none comes out as one "?" a byte, so that nobody behind here decodes past the end of a
    text. A text ends at its first NUL, as the host sees it. Any thread.
*/

namespace veltra::plugin {

/** The text with every invalid byte replaced by "?". */
std::string validUtf8 (std::string_view text);

/** The same as a juce text. */
juce::String toJuce (std::string_view text);

/** Copies a text to a buffer of the host's, made valid and with an end mark. What does not fit is left out,
    whole characters at a time.

    @param buffer  may be null, which takes nothing
    @param size    of the buffer in bytes, end mark included; 0 takes nothing
*/
void copyBounded (std::string_view text, char* buffer, std::uint32_t size) noexcept;

/** Number of characters (not bytes) of a valid text. */
std::size_t characterCount (std::string_view validText) noexcept;

/** The first count characters of a valid text, or all of it. */
std::string_view firstCharacters (std::string_view validText, std::size_t count) noexcept;

}
