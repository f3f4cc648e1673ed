// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cmath>
#include <cstdint>

namespace veltra::tools {

/** White noise that is the same on every machine: uniformly distributed, from a 32-bit xorshift generator
    (G. Marsaglia, "Xorshift RNGs", 2003).

    @param level_dBFS  RMS value in dB below full scale; minus infinity gives silence
*/
class NoiseSource
{
public:
    static constexpr std::uint32_t kSeed = 0x9E3779B9u;

    explicit NoiseSource (double level_dBFS, std::uint32_t seed = kSeed) noexcept
        // A uniform distribution between -p and p has an RMS value of p / sqrt (3).
        : peak (static_cast<float> (std::sqrt (3.0) * std::pow (10.0, level_dBFS / 20.0))),
          state (seed)
    {
    }

    float next() noexcept
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return peak * (static_cast<float> (static_cast<std::int32_t> (state)) * 0x1p-31f);
    }

private:
    float peak;
    std::uint32_t state;
};

}
