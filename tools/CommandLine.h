// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    CLI11, with words in UTF-8 on every system. */

#include <filesystem>
#include <string>
#include <vector>

#include "tools/platform/Process.h"

#if defined(_WIN32)
namespace CLI::detail {

/** An overload that CLI11 prefers to its own, which takes each byte of a path for a letter there. */
inline bool lexical_cast (const std::string& text, std::filesystem::path& path)
{
    path = std::filesystem::path (std::u8string (text.begin(), text.end()));
    return true;
}

}
#endif

#include <CLI/CLI.hpp>

namespace veltra {

/** Reads the words of the command line. @throws CLI::ParseError */
inline void parse (CLI::App& program, int count, const char* const* words)
{
    const auto inUtf8 = platform::commandLine (count, words);
    std::vector<const char*> pointers;

    for (const auto& word : inUtf8)
        pointers.push_back (word.c_str());

    program.parse (count, pointers.data());
}

}
