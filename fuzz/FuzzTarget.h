// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/** One input of a target. libFuzzer calls it with what it makes up (scripts/fuzz), Replay.cpp with the files of the
    corpus. A target ends the process when it meets what must not be; it must leave nothing behind for the next call. */
extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size);

namespace veltra::fuzz {

/** Ends the process unless the condition holds, in every build. */
inline void require (bool holds, const char* what)
{
    if (holds)
        return;

    std::fprintf (stderr, "A requirement does not hold: %s\n", what);
    std::abort();
}

/** An input as text. */
inline std::string_view asText (const std::uint8_t* data, std::size_t size)
{
    return { reinterpret_cast<const char*> (data), size };
}

/** Cuts the text up to the first separator off, and the separator with it. */
inline std::string_view cutUpTo (char separator, std::string_view& text)
{
    const auto end = text.find (separator);
    const auto piece = text.substr (0, end);
    text.remove_prefix (end == text.npos ? text.size() : end + 1);
    return piece;
}

}
