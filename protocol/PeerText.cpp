#include "protocol/PeerText.h"

#include <cstdint>
#include <string>

namespace veltraio {

namespace {

/** Length of the well-formed UTF-8 character at the start of a text (Unicode 15, table 3-7), 0 when there is none. */
std::size_t characterLength (std::string_view text)
{
    const auto byte = [text] (std::size_t i) { return static_cast<std::uint8_t> (text[i]); };
    const auto first = byte (0);

    if (first < 0x80)
        return 1;

    const std::size_t length = first >= 0xC2 && first <= 0xDF ? 2 : first >= 0xE0 && first <= 0xEF ? 3
                                                                 : first >= 0xF0 && first <= 0xF4 ? 4
                                                                                                  : 0;
    if (length == 0 || text.size() < length)
        return 0;

    // Overlong forms, surrogates and values above U+10FFFF show in the second byte.
    const std::uint8_t lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;

    if (byte (1) < lowest || byte (1) > highest)
        return 0;

    for (std::size_t i = 2; i < length; ++i)
        if (byte (i) < 0x80 || byte (i) > 0xBF)
            return 0;

    return length;
}

}

juce::String peerText (std::string_view bytes)
{
    bytes = bytes.substr (0, bytes.find ('\0'));
    std::string text;
    text.reserve (bytes.size());

    while (! bytes.empty())
    {
        const auto length = characterLength (bytes);

        if (length > 0)
            text.append (bytes.substr (0, length));
        else
            text.append ("\xEF\xBF\xBD");

        bytes.remove_prefix (length > 0 ? length : 1);
    }

    return juce::String::fromUTF8 (text.data(), static_cast<int> (text.size()));
}

}
