// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/TextFile.h"

#include "tools/ExitStatus.h"
#include "tools/InputFile.h"

namespace veltra::host {

namespace {

constexpr std::size_t kLargestText = 1u << 30;

}

std::string readTextFile (const std::filesystem::path& file)
{
    auto text = readInput (file, kLargestText);

    if (text.size() > kLargestText)
        throw Failure (kExitInput, inputName (file) + " is too large for a filter description.");

    if (text.find ('\0') != text.npos)
        throw Failure (kExitInput, inputName (file) + " is not a text: it holds NUL characters.");

    return text;
}

}
