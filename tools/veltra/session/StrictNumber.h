// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <type_traits>

namespace veltra::host {

/** The number that a text is; nothing when anything else is in the text, also a blank or a "+", when it does not fit
    the type, and for "nan" and "inf". */
template <typename Number, typename... Base>
std::optional<Number> strictNumber (std::string_view text, Base... base)
{
    Number value {};
    const auto [end, error] = std::from_chars (text.data(), text.data() + text.size(), value, base...);

    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;

    if constexpr (std::is_floating_point_v<Number>)
        if (! std::isfinite (value))
            return std::nullopt;

    return value;
}

}
