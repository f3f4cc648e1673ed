// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Text.h"

#include <cstring>

namespace veltra::plugin {

namespace {

bool startsCharacter (char byte) noexcept { return (static_cast<unsigned char> (byte) & 0xC0) != 0x80; }

}

void copyBounded (std::string_view text, char* buffer, std::uint32_t size)
{
    if (buffer == nullptr || size == 0)
        return;

    const auto valid = toValidUtf8 (text.substr (0, text.find ('\0')));
    std::size_t length = valid.size();

    if (length >= size)
        for (length = size - 1; length > 0 && ! startsCharacter (valid[length]);)
            --length;

    std::memcpy (buffer, valid.data(), length);
    buffer[length] = '\0';
}

std::string_view firstCharacters (std::string_view validText, std::size_t count) noexcept
{
    std::size_t end = 0;

    for (; end < validText.size(); ++end)
        if (startsCharacter (validText[end]) && count-- == 0)
            break;

    return validText.substr (0, end);
}

}
