// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace veltra::host {

/** The text of a filter description's file, "-" for standard input.
    @throws  Failure (kExitInput) when it cannot be read, is larger than 1 GiB, or holds NUL characters, after
             which a parser would see nothing
*/
std::string readTextFile (const std::filesystem::path& file);

}
