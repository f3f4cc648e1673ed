// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/BigEndian.h"

/** @file
    The protocol's envelope as its rules say, written once more so that the module's own code is not its own judge.
*/

namespace veltra::test {

inline std::uint32_t hashOf (std::string_view bytes)
{
    std::uint32_t hash = 0;

    for (const unsigned char byte : bytes)
        hash = hash * 31 + byte;

    return hash;
}

/** Marker, length, identifier, checksum, body. */
inline std::string envelopeOf (std::string_view messageName, const std::string& body)
{
    return "\x21\x01\xFF" + bigEndian (static_cast<std::uint32_t> (body.size())) + bigEndian (hashOf (messageName))
           + bigEndian (hashOf (body)) + body;
}

}
