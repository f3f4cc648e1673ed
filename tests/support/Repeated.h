// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

/** A text so many times. */
inline std::string repeated (const std::string& text, int count)
{
    std::string all;

    for (int i = 0; i < count; ++i)
        all += text;

    return all;
}
