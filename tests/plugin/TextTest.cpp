#include "plugin/Text.h"

#include <cstring>

#include <gtest/gtest.h>

namespace veltra::plugin {

namespace {

/** What a host finds in a buffer of a given size; "*" for a byte that was left alone. */
std::string copied (std::string_view text, std::uint32_t size)
{
    std::string buffer (16, '*');
    copyBounded (text, buffer.data(), size);
    return buffer.substr (0, size > 0 ? std::strlen (buffer.c_str()) : 4);
}

}

TEST (Text, ABufferTakesWholeCharactersAndAnEndMark)
{
    EXPECT_EQ (copied ("Lounge", 16), "Lounge");
    EXPECT_EQ (copied ("Lounge", 7), "Lounge");
    EXPECT_EQ (copied ("Lounge", 6), "Loung");
    EXPECT_EQ (copied ("Lounge", 1), "");
    EXPECT_EQ (copied ("Lounge", 0), "****");
    EXPECT_EQ (copied ("Küche", 3), "K") << "half a character is no character";
    EXPECT_EQ (copied ("Küche", 4), "Kü");
    EXPECT_EQ (copied ("\xF0\x9F\x94\x8A", 4), "");
    EXPECT_EQ (copied ("\xF0\x9F\x94\x8A", 5), "\xF0\x9F\x94\x8A");
    copyBounded ("Lounge", nullptr, 16);
}

TEST (Text, BytesThatAreNoTextComeOutReadable)
{
    EXPECT_EQ (copied ("a\xFF""b\xC3", 16), "a?b?");
    EXPECT_EQ (copied (std::string_view ("ab\0cd", 5), 16), "ab");
}

TEST (Text, CharactersAreCutWhole)
{
    const std::string text = "Küche \xF0\x9F\x94\x8A";
    EXPECT_EQ (firstCharacters (text, 2), "Kü");
    EXPECT_EQ (firstCharacters (text, 6), "Küche ");
    EXPECT_EQ (firstCharacters (text, 7), text);
    EXPECT_EQ (firstCharacters (text, 99), text);
    EXPECT_EQ (firstCharacters (text, 0), "");
}

}
