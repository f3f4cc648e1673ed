// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/FixedPoint.h"

#include <cmath>

namespace veltra::topology {

std::uint32_t toFixed (float value, int fractionBits, int& clipCount) noexcept
{
    constexpr float bound = 2147483648.0f;

    const float scaled = value * std::ldexp (1.0f, fractionBits);
    float rounded = std::floor (scaled + 0.5f);

    if (std::isnan (rounded))
    {
        ++clipCount;
        return 0;
    }

    if (rounded < -bound || rounded > bound)
    {
        ++clipCount;
        rounded = std::copysign (bound, rounded);
    }

    // Beyond the highest 32-bit integer a conversion is undefined in C++; 64 bits hold it, and the lower half of
    // 2^31 is the word wanted.
    return static_cast<std::uint32_t> (static_cast<std::int64_t> (rounded));
}

float fromFixed (std::uint32_t word, int fractionBits) noexcept
{
    return std::ldexp (static_cast<float> (static_cast<std::int32_t> (word)), -fractionBits);
}

}
