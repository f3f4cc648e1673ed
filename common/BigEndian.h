// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <concepts>
#include <cstdint>
#include <string>

/** @file
    32-bit words with the most significant byte first, as the envelopes and the blobs of the dual-rate structure have them.
    Bytes are char or std::uint8_t; there must be 4 of them.
*/

namespace veltra {

template <class Byte>
concept ByteLike = std::same_as<Byte, char> || std::same_as<Byte, std::uint8_t>;

template <ByteLike Byte>
constexpr void putBigEndian (Byte* to, std::uint32_t word) noexcept
{
    for (const int shift : { 24, 16, 8, 0 })
        *to++ = static_cast<Byte> (word >> shift & 0xFF);
}

template <ByteLike Byte>
constexpr std::uint32_t getBigEndian (const Byte* from) noexcept
{
    std::uint32_t word = 0;

    for (int i = 0; i < 4; ++i)
        word = word << 8 | static_cast<std::uint8_t> (from[i]);

    return word;
}

inline std::string bigEndian (std::uint32_t word)
{
    std::string bytes (4, '\0');
    putBigEndian (bytes.data(), word);
    return bytes;
}

}
