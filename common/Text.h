// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

namespace veltra {

/** @file
    Texts from files, from the network and from the host. None is trusted to be valid UTF-8. Any thread.
*/

/** The text with every byte that is not part of a well-formed UTF-8 sequence replaced by "?".

    Text from files and from the network passes through here on its way to juce::String, whose character
    pointer runs past the end of a text that stops in the middle of a sequence.
*/
std::string toValidUtf8 (std::string_view text);

/** A text from outside as a juce::String: made valid as above, and up to its first NUL. */
juce::String juceText (std::string_view bytes);

/** A text from outside, made fit for one line of the log: control characters come out as escapes (\n, \r, \t, \x1b,
    \u0085) and bytes that are not UTF-8 as "?", so that a peer on the network can neither forge lines of the log nor
    send commands to the terminal that shows it. All other text comes back unchanged, backslashes included.

    @param limit  of a longer text so many bytes come back, and "..."
*/
std::string logText (std::string_view text, std::size_t limit = std::string_view::npos);

/** The text without the white space at its start. */
std::string_view trimmedStart (std::string_view text) noexcept;

/** The text without the white space at its start and end. */
std::string_view trimmed (std::string_view text) noexcept;

/** Whether two texts are equal when the case of the letters A to Z does not count. */
bool equalsIgnoringCase (std::string_view a, std::string_view b) noexcept;

/** Copies a text, up to its first NUL, to a buffer of the host's, made valid and with an end mark. What does not fit
    is left out, whole characters at a time.

    @param buffer  may be null: nothing is written
    @param size    of the buffer in bytes, end mark included; 0: nothing is written
    @throws        std::bad_alloc
*/
void copyBounded (std::string_view text, char* buffer, std::uint32_t size);

/** The first characters (not bytes) of a valid text, or all of it. */
std::string_view firstCharacters (std::string_view validText, std::size_t count) noexcept;

}
