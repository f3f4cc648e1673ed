// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/Text.h"

/** @file
    Texts of a device or a filter description on their way to the host. Neither is trusted to be valid UTF-8; what
    is none comes out as toValidUtf8 makes it. Any thread.
*/

namespace veltra::plugin {

/** Copies a text, up to its first NUL, to a buffer of the host's, made valid and with an end mark. What does not fit
    is left out, whole characters at a time.

    @param buffer  may be null, which takes nothing
    @param size    of the buffer in bytes, end mark included; 0 takes nothing
    @throws        std::bad_alloc
*/
void copyBounded (std::string_view text, char* buffer, std::uint32_t size);

/** The first characters (not bytes) of a valid text, or all of it. */
std::string_view firstCharacters (std::string_view validText, std::size_t count) noexcept;

}
