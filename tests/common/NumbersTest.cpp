// SPDX-License-Identifier: GPL-3.0-or-later
#include <clocale>

#include "common/Numbers.h"
#include "tests/support/Testing.h"

namespace {

void expectAsStrtod (const std::string& text)
{
    const double expected = std::strtod (text.c_str(), nullptr);
    const double actual = veltra::toDouble (text);
    EXPECT_TRUE ((expected == actual || (std::isnan (expected) && std::isnan (actual)))
                 && std::signbit (expected) == std::signbit (actual))
        << "'" << text << "' is " << expected << ", not " << actual;
}

TEST (Numbers, DecimalsReadAsAtofReadsThem)
{
    const std::string ones (400, '1'), zeros (400, '0');
    std::istringstream texts (
        " \t\n 3.5xyz|5.|1e|1e+|abc||-|+|--1|+-1|-+1|-abc|1,5|4.9e-324|2.4703282292062327e-324|1e-400|"
        "-1e400|1e99999999999999999999|1e-99999999999999999999|0e99999999999999999999|inf|-Infinity|"
        "infinit|nan|-nan(1)x|0x10|-0x1.8p1|0x.8|0x|-0x|0x.|0x-1|0xinf|0xnan|0x1p|0x1p+-3|0x1p2000|"
        "0x1p-2000|"
        + ones + "|" + ones + "e-10|" + ones + "e-400|" + ones + "e-800|0." + zeros + "1e500|-." + zeros + "1e5|0."
        + zeros + "1|0x" + ones + "p-2800|0x0." + zeros + "1p1700");

    for (std::string text; std::getline (texts, text, '|');)
        expectAsStrtod (text);

    std::istringstream list ("0 1 9 0x 0X . e E p P - + inf nan a F ( ) , 308 1024 -324 -1074 99999999999999999999");
    const std::vector<std::string> pieces (std::istream_iterator<std::string> (list), {});
    std::mt19937 random (1);

    for (int round = 0; round < 100000; ++round)
    {
        std::string text;

        for (auto left = 1 + random() % 9; left > 0; --left)
            text += pieces[random() % pieces.size()];

        expectAsStrtod (text);
    }
}

TEST (Numbers, TheLocaleDoesNotMatter)
{
    std::setlocale (LC_ALL, "de_DE.UTF-8"); // where it is not installed, the lines below hold all the same
    EXPECT_EQ (2.5, veltra::toDouble ("2.5"));
    EXPECT_EQ (2.0, veltra::toDouble ("2,5"));
    std::setlocale (LC_ALL, "C");
}

TEST (Numbers, IntegersReadAsAtoiReadsThemAndStayInRange)
{
    for (const char* text : { "42", "-42", "+42", "  7 8", "12.9", "x", "", "-", "2147483647", "-2147483648" })
        EXPECT_EQ (std::atoi (text), veltra::toInt (text)) << "'" << text << "'";

    EXPECT_EQ (2147483647, veltra::toInt ("99999999999999999999"));
    EXPECT_EQ (-2147483647 - 1, veltra::toInt ("-99999999999999999999"));
}

}
