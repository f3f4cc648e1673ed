// SPDX-License-Identifier: GPL-3.0-or-later
#include <clocale>
#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>

#include "common/Numbers.h"

namespace {

TEST (Numbers, DecimalsReadAsAtofReadsThem)
{
    for (const char* text : { "1.5",
                              "-2.25e-3",
                              "+7",
                              " \t\n 3.5xyz",
                              ".5",
                              "5.",
                              "1e",
                              "1e+",
                              "1e400",
                              "-1e400",
                              "1e-400",
                              "0.000000000000000000000000000000000001e-320",
                              "abc",
                              "",
                              "-",
                              "+",
                              "--1",
                              "+-1",
                              "-+1",
                              "0x10",
                              "-0x1.8p1",
                              "inf",
                              "-Infinity",
                              "1,5",
                              "123456789012345678901234567890",
                              "4.9e-324",
                              "0x" })
        EXPECT_EQ (std::atof (text), veltra::toDouble (text)) << "'" << text << "'";

    EXPECT_TRUE (std::isnan (veltra::toDouble ("nan")));
}

TEST (Numbers, TheLocaleDoesNotMatter)
{
    const char* const set = std::setlocale (LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ (2.5, veltra::toDouble ("2.5"));
    EXPECT_EQ (2.0, veltra::toDouble ("2,5"));
    std::setlocale (LC_ALL, "C");
    static_cast<void> (set); // where the locale is not installed, the lines above hold all the same
}

TEST (Numbers, IntegersReadAsAtoiReadsThemAndStayInRange)
{
    for (const char* text : { "42", "-42", "+42", "  7 8", "12.9", "x", "", "-", "2147483647", "-2147483648" })
        EXPECT_EQ (std::atoi (text), veltra::toInt (text)) << "'" << text << "'";

    EXPECT_EQ (2147483647, veltra::toInt ("99999999999999999999"));
    EXPECT_EQ (-2147483647 - 1, veltra::toInt ("-99999999999999999999"));
}

}
