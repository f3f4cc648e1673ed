#pragma once

#include <cstdint>
#include <string_view>

namespace veltraio {

/** The hash of the device protocol: h = h * 31 + byte in 32-bit arithmetic from 0, bytes taken as unsigned.

    Over an envelope's body it is the checksum, over a message's full name the message's identifier. The empty
    text hashes to 0. It finds transmission faults, nothing more: anybody can make a body of a given hash.
*/
constexpr std::uint32_t envelopeHash (std::string_view bytes) noexcept
{
    std::uint32_t hash = 0;

    for (const char byte : bytes)
        hash = hash * 31u + static_cast<unsigned char> (byte);

    return hash;
}

inline std::uint32_t envelopeHash (const void* data, std::size_t size) noexcept
{
    return envelopeHash (std::string_view (static_cast<const char*> (data), size));
}

}
