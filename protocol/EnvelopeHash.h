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
    const auto value = [&] (std::size_t i) { return std::uint32_t { static_cast<unsigned char> (bytes[i]) }; };
    std::size_t i = 0;

    // Four at a time: a step for each byte would have to wait for the one before.
    for (; i + 4 <= bytes.size(); i += 4)
        hash = hash * (31u * 31u * 31u * 31u) + value (i) * (31u * 31u * 31u) + value (i + 1) * (31u * 31u)
               + value (i + 2) * 31u + value (i + 3);

    for (; i < bytes.size(); ++i)
        hash = hash * 31u + value (i);

    return hash;
}

inline std::uint32_t envelopeHash (const void* data, std::size_t size) noexcept
{
    return envelopeHash (std::string_view (static_cast<const char*> (data), size));
}

}
