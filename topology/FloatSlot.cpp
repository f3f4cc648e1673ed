// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/FloatSlot.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace veltra::topology {

void FloatSlot::write (std::span<const float> values) noexcept
{
    values = values.first (std::min (values.size(), rest.size() / sizeof (float)));

    if constexpr (std::endian::native == std::endian::little)
    {
        if (! values.empty())
            std::memcpy (rest.data(), values.data(), values.size_bytes());
    }
    else
    {
        for (size_t i = 0; i < values.size(); ++i)
        {
            const auto word = std::bit_cast<std::uint32_t> (values[i]);

            for (unsigned byte = 0; byte < 4; ++byte)
                rest[4 * i + byte] = static_cast<char> (word >> (8 * byte));
        }
    }

    rest = rest.subspan (values.size_bytes());
}

void FloatSlot::write (std::span<const dsp::FIIRSection> sections) noexcept
{
    for (const auto& section : sections)
    {
        const float values[] { section.a1, section.a2, section.b0, section.b1 };
        write (values);
    }
}

}
