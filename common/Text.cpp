// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <utf8.h>

namespace veltra {

namespace {

constexpr std::string_view kWhiteSpace = " \t\r\n\v\f";

char lowerCase (char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char> (c + ('a' - 'A')) : c; }

bool startsCharacter (char byte) noexcept { return (static_cast<unsigned char> (byte) & 0xC0) != 0x80; }

void appendEscape (std::string& line, const char* format, unsigned value)
{
    char escape[8];
    std::snprintf (escape, sizeof (escape), format, value);
    line += escape;
}

}

std::string toValidUtf8 (std::string_view text)
{
    std::string valid;
    valid.reserve (text.size());

    while (! text.empty())
    {
        const auto* bad = utf8::find_invalid (text.data(), text.data() + text.size());
        const auto good = static_cast<std::size_t> (bad - text.data());
        valid += text.substr (0, good);
        text.remove_prefix (good);

        if (! text.empty())
        {
            valid += '?';
            text.remove_prefix (1);
        }
    }

    return valid;
}

juce::String juceText (std::string_view bytes)
{
    const auto text = toValidUtf8 (bytes.substr (0, bytes.find ('\0')));
    return juce::String::fromUTF8 (text.data(), static_cast<int> (text.size()));
}

std::string logText (std::string_view text, std::size_t limit)
{
    const auto valid = toValidUtf8 (text.substr (0, limit));
    std::string line;
    line.reserve (valid.size());

    for (std::size_t i = 0; i < valid.size(); ++i)
    {
        const auto byte = static_cast<unsigned char> (valid[i]);
        const auto next = i + 1 < valid.size() ? static_cast<unsigned char> (valid[i + 1]) : 0u;

        if (byte == '\n')
            line += "\\n";
        else if (byte == '\r')
            line += "\\r";
        else if (byte == '\t')
            line += "\\t";
        else if (byte < 0x20 || byte == 0x7f)
            appendEscape (line, "\\x%02x", byte);
        else if (byte == 0xc2 && next < 0xa0)
        {
            // U+0080 to U+009F, which terminals take for commands as well.
            appendEscape (line, "\\u%04x", next);
            ++i;
        }
        else
            line += valid[i];
    }

    return text.size() > limit ? line + "..." : line;
}

std::string_view trimmedStart (std::string_view text) noexcept
{
    text.remove_prefix (std::min (text.find_first_not_of (kWhiteSpace), text.size()));
    return text;
}

std::string_view trimmed (std::string_view text) noexcept
{
    text = trimmedStart (text);
    return text.substr (0, text.find_last_not_of (kWhiteSpace) + 1);
}

bool equalsIgnoringCase (std::string_view a, std::string_view b) noexcept
{
    return std::equal (a.begin(), a.end(), b.begin(), b.end(),
                       [] (char x, char y) { return lowerCase (x) == lowerCase (y); });
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
