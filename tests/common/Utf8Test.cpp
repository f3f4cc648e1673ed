// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "common/Text.h"

namespace {

TEST (Utf8, WellFormedTextPassesUnchanged)
{
    const std::string text = "Fl\xc3\xbcgel \xe2\x82\xac \xf0\x9f\x8e\xb5 \xed\x9f\xbf \xf4\x8f\xbf\xbf";
    EXPECT_EQ (text, veltra::toValidUtf8 (text));
    EXPECT_EQ ("", veltra::toValidUtf8 (""));
}

TEST (Utf8, EachByteOutsideASequenceBecomesAQuestionMark)
{
    EXPECT_EQ ("a?", veltra::toValidUtf8 ("a\xf0"));
    EXPECT_EQ ("a???", veltra::toValidUtf8 ("a\xf0\x9f\x8e")) << "cut off";
    EXPECT_EQ ("?b", veltra::toValidUtf8 ("\xc3"
                                          "b"));
    EXPECT_EQ ("?", veltra::toValidUtf8 ("\x80"));
    EXPECT_EQ ("??", veltra::toValidUtf8 ("\xc0\xaf")) << "overlong";
    EXPECT_EQ ("???", veltra::toValidUtf8 ("\xed\xa0\x80")) << "surrogate";
    EXPECT_EQ ("????", veltra::toValidUtf8 ("\xf4\x90\x80\x80")) << "beyond U+10FFFF";
    EXPECT_EQ ("?\xc3\xbc?", veltra::toValidUtf8 ("\xff\xc3\xbc\xfe"));
}

}
