#include "plugin/Text.h"

#include <algorithm>
#include <cstring>

namespace veltra::plugin {

namespace {

/** Length in bytes of the well-formed UTF-8 sequence (Unicode, table 3-7) at the start of a text; 0 if there is
    none. */
std::size_t sequenceLength (std::string_view text) noexcept
{
    const auto byteAt = [&text] (std::size_t i) { return static_cast<unsigned char> (text[i]); };
    const unsigned lead = byteAt (0);

    if (lead < 0x80)
        return 1;

    const std::size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;

    if (length == 0 || text.size() < length)
        return 0;

    // The second byte's range keeps out overlong forms, surrogates and what lies beyond U+10FFFF.
    const unsigned lowest  = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;

    if (byteAt (1) < lowest || byteAt (1) > highest)
        return 0;

    for (std::size_t i = 2; i < length; ++i)
        if (byteAt (i) < 0x80 || byteAt (i) > 0xBF)
            return 0;

    return length;
}

/** Calls take (bytes) for each character in turn, "?" standing in for an invalid byte, until it returns false. */
template <typename Take>
void forEachCharacter (std::string_view text, Take take)
{
    text = text.substr (0, text.find ('\0'));

    while (! text.empty())
    {
        const auto length = sequenceLength (text);

        if (! take (length > 0 ? text.substr (0, length) : std::string_view ("?")))
            return;

        text.remove_prefix (std::max<std::size_t> (length, 1));
    }
}

}

std::string validUtf8 (std::string_view text)
{
    std::string result;
    result.reserve (text.size());
    forEachCharacter (text, [&result] (std::string_view character) { result += character; return true; });
    return result;
}

juce::String toJuce (std::string_view text)
{
    return juce::String::fromUTF8 (validUtf8 (text).c_str());
}

void copyBounded (std::string_view text, char* buffer, std::uint32_t size) noexcept
{
    if (buffer == nullptr || size == 0)
        return;

    std::size_t used = 0;

    forEachCharacter (text, [&] (std::string_view character)
    {
        if (used + character.size() >= size)
            return false;

        std::memcpy (buffer + used, character.data(), character.size());
        used += character.size();
        return true;
    });

    buffer[used] = '\0';
}

std::size_t characterCount (std::string_view validText) noexcept
{
    return static_cast<std::size_t> (std::count_if (validText.begin(), validText.end(),
        [] (char c) { return (static_cast<unsigned char> (c) & 0xC0) != 0x80; }));
}

std::string_view firstCharacters (std::string_view validText, std::size_t count) noexcept
{
    std::size_t end = 0;

    while (end < validText.size() && count-- > 0)
        end += sequenceLength (validText.substr (end));

    return validText.substr (0, end);
}

}
