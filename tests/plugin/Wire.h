// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <bit>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "tests/support/Envelope.h"

/** @file
    The protocol's messages as its rules say, byte by byte.
*/

namespace veltra::test::wire {

inline std::string varint (std::uint64_t value)
{
    std::string bytes;

    for (; value >= 0x80; value >>= 7)
        bytes += static_cast<char> (value | 0x80);

    return bytes + static_cast<char> (value);
}

inline std::string littleEndian (float value)
{
    const auto word = std::bit_cast<std::uint32_t> (value);
    return { static_cast<char> (word), static_cast<char> (word >> 8), static_cast<char> (word >> 16),
             static_cast<char> (word >> 24) };
}

// Fields of a message: a tag with the field's number and its kind (0 number, 2 bytes, 5 32 bits), then the value.
inline std::string number (unsigned field, std::uint64_t value) { return varint (field << 3 | 0) + varint (value); }
inline std::string bytes (unsigned field, std::string_view value)
{
    return varint (field << 3 | 2) + varint (value.size()) + std::string (value);
}
inline std::string real (unsigned field, float value) { return varint (field << 3 | 5) + littleEndian (value); }

/** Filter data. */
inline std::string floats (std::initializer_list<float> values)
{
    std::string data;

    for (const auto value : values)
        data += littleEndian (value);

    return data;
}

inline std::string envelope (const std::string& message, const std::string& body)
{
    return envelopeOf ("veltraio." + message, body);
}

}
