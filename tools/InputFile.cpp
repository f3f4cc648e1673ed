// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/InputFile.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "tools/ExitStatus.h"

namespace veltra {

namespace {

constexpr const char* kStandardInput = "-";

}

std::string readInput (const std::filesystem::path& file, std::size_t mostBytes)
{
    std::ifstream opened;
    auto& stream = file == kStandardInput ? std::cin : opened;

    if (file != kStandardInput)
        opened.open (file, std::ios::binary);

    // No size is asked for: the file may be a pipe or a device.
    std::string content, piece (1u << 16, '\0');

    while (stream && content.size() <= mostBytes)
    {
        const auto room = std::min (piece.size(), mostBytes + 1 - content.size());
        stream.read (piece.data(), static_cast<std::streamsize> (room));
        content.append (piece, 0, static_cast<std::size_t> (stream.gcount()));
    }

    if (! stream.eof() && content.size() <= mostBytes)
        throw Failure (kExitInput, inputName (file) + " cannot be read.");

    return content;
}

std::string inputName (const std::filesystem::path& file)
{
    return file == kStandardInput ? "standard input" : file.string();
}

}
