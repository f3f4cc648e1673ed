// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace veltra {

/** The content of an input file, or of standard input where its name is "-". Pipes and devices are read to their end.

    @param mostBytes  one byte more is read at most, so that a longer file shows
    @throws           Failure (kExitInput) when it cannot be read */
std::string readInput (const std::filesystem::path& file, std::size_t mostBytes);

/** How texts name an input file: as the user did, or "standard input". */
std::string inputName (const std::filesystem::path& file);

}
