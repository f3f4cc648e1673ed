// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/TextFile.h"

#include <fstream>

#include "tools/ExitStatus.h"

namespace veltra::host {

namespace {

constexpr std::size_t kLargestText = 1u << 30;

}

std::string readTextFile (const std::filesystem::path& file)
{
    // No size is asked for: the file may be a pipe or a device.
    std::ifstream stream (file, std::ios::binary);
    std::string text, piece (1u << 16, '\0');

    while (stream && text.size() <= kLargestText)
    {
        stream.read (piece.data(), static_cast<std::streamsize> (piece.size()));
        text.append (piece, 0, static_cast<std::size_t> (stream.gcount()));
    }

    if (text.size() > kLargestText)
        throw Failure (kExitInput, file.string() + " is too large for a filter description.");

    if (! stream.eof())
        throw Failure (kExitInput, file.string() + " cannot be read.");

    if (text.find ('\0') != text.npos)
        throw Failure (kExitInput, file.string() + " is not a text: it holds NUL characters.");

    return text;
}

}
