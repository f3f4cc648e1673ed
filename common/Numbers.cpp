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

bool startsWithHexPrefix (std::string_view text) noexcept
{
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

/** from_chars leaves the value alone when it is out of range; the exponent's sign tells which end it fell off. */
double outOfRange (std::string_view number) noexcept
{
    const auto exponent = number.find_last_of ("eEpP");
    const bool tiny = exponent != std::string_view::npos ? number.substr (exponent + 1).starts_with ('-')
                                                         : number.starts_with ("0") || number.starts_with (".");
    return tiny ? 0.0 : std::numeric_limits<double>::infinity();
}

}

double toDouble (std::string_view text) noexcept
{
    const bool negative = takeSign (text);

    if (! text.empty() && text.front() == '-') // from_chars would take a second sign, atof does not
        return 0.0;

    auto format = std::chars_format::general;

    if (startsWithHexPrefix (text))
    {
        text.remove_prefix (2);
        format = std::chars_format::hex;
    }

    double value = 0.0;
    const auto [end, error] = std::from_chars (text.data(), text.data() + text.size(), value, format);

    if (error == std::errc::result_out_of_range)
        value = outOfRange (text.substr (0, static_cast<size_t> (end - text.data())));

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
