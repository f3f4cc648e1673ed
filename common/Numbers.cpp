// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Numbers.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace veltra {

namespace {

bool isSpace (char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

/** Takes white space and the sign away; from_chars accepts neither the former nor a "+". */
bool takeSign (std::string_view& text) noexcept
{
    while (! text.empty() && isSpace (text.front()))
        text.remove_prefix (1);

    if (text.empty() || (text.front() != '-' && text.front() != '+'))
        return false;

    const bool negative = text.front() == '-';
    text.remove_prefix (1);
    return negative;
}

bool isDigit (char c) noexcept { return c >= '0' && c <= '9'; }

bool isHexDigit (char c) noexcept { return isDigit (c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

/** A prefix without a digit behind it is the number 0 and a letter. */
bool startsWithHexNumber (std::string_view text) noexcept
{
    if (! text.starts_with ("0x") && ! text.starts_with ("0X"))
        return false;

    text.remove_prefix (text.substr (2).starts_with ('.') ? 3 : 2);
    return ! text.empty() && isHexDigit (text.front());
}

/** What a number is that from_chars found out of range, and so did not convert: the order of magnitude decides, which
    its leading digit and its exponent make up. */
double outOfRange (std::string_view number, bool isHex) noexcept
{
    const auto mantissa = number.substr (0, number.find_first_of (isHex ? "pP" : "eE"));
    const auto exponent = toInt (number.substr (std::min (mantissa.size() + 1, number.size())));
    const auto point = std::min (mantissa.find ('.'), mantissa.size());
    const auto leading = mantissa.find_first_not_of ("0.");
    const auto digitsBeforePoint = static_cast<long long> (point) - static_cast<long long> (leading);
    return digitsBeforePoint * (isHex ? 4 : 1) + exponent < 0 ? 0.0 : std::numeric_limits<double>::infinity();
}

}

double toDouble (std::string_view text) noexcept
{
    const bool negative = takeSign (text);

    if (! text.empty() && text.front() == '-') // from_chars would take a second sign, atof does not
        return 0.0;

    const bool isHex = startsWithHexNumber (text);
    text.remove_prefix (isHex ? 2 : 0);

    if (isHex) // GCC 12's from_chars takes "+-" for the sign of a hexadecimal exponent
        text = text.substr (0, text.find ("+-"));

    double value = 0.0;
    const auto [end, error] = std::from_chars (text.data(), text.data() + text.size(), value,
                                               isHex ? std::chars_format::hex : std::chars_format::general);

    if (error == std::errc::invalid_argument) // no number, and so no negative one
        return 0.0;

    if (error == std::errc::result_out_of_range)
        value = outOfRange (text.substr (0, static_cast<size_t> (end - text.data())), isHex);

    return negative ? -value : value;
}

int toInt (std::string_view text) noexcept
{
    const bool negative = takeSign (text);
    long long value = 0;

    for (const char c : text)
    {
        if (c < '0' || c > '9')
            break;

        value = std::min (value * 10 + (c - '0'), 1LL << 40);
    }

    constexpr long long highest = std::numeric_limits<int>::max();
    return static_cast<int> (negative ? -std::min (value, highest + 1) : std::min (value, highest));
}

}
