// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/DescriptionFile.h"

#include "filters/FilterDescriptionParser.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/veltra/filters/TextFile.h"

namespace veltra::host {

DescriptionFile readDescription (const std::filesystem::path& file)
{
    DescriptionFile description { readTextFile (file), std::make_unique<filters::FilterSetsImpl>() };

    parser::FIIR::DescriptionProblem problem;

    if (parser::FIIR::parse (description.text.c_str(), description.set.get(), "Veltra", &problem)
        != parser::FIIR::Success)
        throw Failure (kExitInput,
                       inputName (file) + " is not a valid filter description: " + describe (problem) + ".");

    return description;
}

}
