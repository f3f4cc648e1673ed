// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "filters/FilterSetsImpl.h"

namespace veltra::host {

/** A filter description: its text, and what the parser made of it. */
struct DescriptionFile
{
    std::string text;
    std::unique_ptr<filters::FilterSetsImpl> set;
};

/** Reads and parses the file of a filter description.
    @throws  Failure (kExitInput) with the parser's reason, and as readTextFile */
DescriptionFile readDescription (const std::filesystem::path& file);

}
