// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Text.h"

#include <gtest/gtest.h>

TEST (LogText, PlainTextOfAnyLanguageComesBackAsItIs)
{
    const std::string text = "C:\\Temp \"K\xC3\xBC"
                             "che\" \xE2\x82\xAC \xF0\x9F\x8E\xA7";
    EXPECT_EQ (veltra::logText (text), text);
}

TEST (LogText, NobodyCanForgeALineOrCommandATerminal)
{
    EXPECT_EQ (veltra::logText ("a\r\n[2024] b\tc"), "a\\r\\n[2024] b\\tc");
    EXPECT_EQ (veltra::logText (std::string_view ("\x1b[2J\x00\x7f", 6)), "\\x1b[2J\\x00\\x7f");
    EXPECT_EQ (veltra::logText ("\xC2\x9B"
                                "31m"),
               "\\u009b31m");
    EXPECT_EQ (veltra::logText ("\x9b"
                                "31m\xC3"),
               "?31m?");
}

TEST (LogText, LongTextsAreCut)
{
    EXPECT_EQ (veltra::logText ("12345678", 8), "12345678");
    EXPECT_EQ (veltra::logText ("123456789", 8), "12345678...");
}
