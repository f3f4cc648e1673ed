// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Text.h"

#include <locale>

#include "common/Log.h"
#include "tests/support/LogLines.h"
#include "tests/support/Testing.h"

namespace veltra {

TEST (Text, EachByteOutsideAWellFormedSequenceBecomesAQuestionMark)
{
    for (const std::string text : { "", "Fl\xc3\xbcgel \xe2\x82\xac \xf0\x9f\x8e\xb5", "\xed\x9f\xbf \xf4\x8f\xbf\xbf",
                                    "\xef\xbf\xbe \xef\xbf\xbf non-characters" })
        EXPECT_EQ (text, toValidUtf8 (text));

    EXPECT_EQ ("a?", toValidUtf8 ("a\xf0"));
    EXPECT_EQ ("a???", toValidUtf8 ("a\xf0\x9f\x8e")) << "cut off";
    EXPECT_EQ ("?z", toValidUtf8 ("\xc3z"));
    EXPECT_EQ ("?", toValidUtf8 ("\x80"));
    EXPECT_EQ ("??", toValidUtf8 ("\xc0\xaf")) << "overlong";
    EXPECT_EQ ("???", toValidUtf8 ("\xed\xa0\x80")) << "surrogate";
    EXPECT_EQ ("????", toValidUtf8 ("\xf4\x90\x80\x80")) << "beyond U+10FFFF";
    EXPECT_EQ ("?\xc3\xbc?", toValidUtf8 ("\xff\xc3\xbc\xfe"));
}

TEST (Text, APeerCanNeitherForgeALineNorCommandATerminal)
{
    for (const auto& [text, expected] : std::initializer_list<std::pair<std::string_view, std::string>> {
             { "C:\\Temp \"\xc3\xbc\xe2\x82\xac\"", "C:\\Temp \"\xc3\xbc\xe2\x82\xac\"" },
             { "a\r\n[2024] b\tc", "a\\r\\n[2024] b\\tc" },
             { { "\x1b[2J\x00\x7f", 6 }, "\\x1b[2J\\x00\\x7f" },
             { "\xc2\x9b 31m", "\\u009b 31m" },
             { "\x9b 31m\xc3", "? 31m?" } })
        EXPECT_EQ (expected, logText (text));

    EXPECT_EQ ("12345678", logText ("12345678", 8));
    EXPECT_EQ ("12345678...", logText ("123456789", 8));
}

TEST (Text, WhiteSpaceAndTheCaseOfLettersCanBeLeftOut)
{
    EXPECT_EQ ("a b", trimmed (" \t\r\n\v\fa b\v\f \r\n"));
    EXPECT_EQ ("a ", trimmedStart (" a "));
    EXPECT_EQ ("", trimmed (" \n"));
    EXPECT_TRUE (equalsIgnoringCase ("fl@[z", "FL@[Z"));
    EXPECT_FALSE (equalsIgnoringCase ("fl", "flx") || equalsIgnoringCase ("@", "`") || equalsIgnoringCase ("[", "{"));
}

/** The host may set a C++ locale with separators. */
TEST (Log, NumbersLookTheSameInEveryLocale)
{
    struct German final : std::numpunct<char>
    {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    const LogLines lines;
    const auto before = std::locale::global (std::locale (std::locale(), new German));
    VELTRA_LOG (INFO, "rate " << 48000 << " Hz, gain " << -1.5f << " dB");
    std::locale::global (before);
    EXPECT_TRUE (lines.contains ("INFO", "rate 48000 Hz, gain -1.5 dB"));
}

}
