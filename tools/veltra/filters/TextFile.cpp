// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/TextFile.h"

#include <fstream>

#include "tools/ExitStatus.h"

namespace veltra::host {

namespace {

constexpr std::uintmax_t kLargestText = 1u << 30;

}

std::string readTextFile (const std::filesystem::path& file)
{
    std::error_code error;
    const auto size = std::filesystem::file_size (file, error);

    if (error)
        throw Failure (kExitInput, file.string() + " cannot be read: " + error.message() + ".");

    if (size > kLargestText)
        throw Failure (kExitInput, file.string() + " is too large for a filter description.");

    std::string text (size, '\0');
    std::ifstream stream (file, std::ios::binary);

    if (! stream.read (text.data(), static_cast<std::streamsize> (size)))
        throw Failure (kExitInput, file.string() + " cannot be read.");

    if (text.find ('\0') != text.npos)
        throw Failure (kExitInput, file.string() + " is no text.");

    return text;
}

}
