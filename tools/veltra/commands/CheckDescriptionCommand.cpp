// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <memory>

#include "common/Text.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/DescriptionFile.h"

namespace veltra::host {

namespace {

std::string setText (std::uint32_t rate, const topology::FIIRData& data)
{
    auto text = std::to_string (rate) + " Hz " + std::to_string (data.taps.size()) + " taps";
    return data.sections.empty() ? text : text + " and " + std::to_string (data.sections.size()) + " sections";
}

void printDescription (const std::filesystem::path& file, const filters::FilterSetsImpl& set)
{
    std::printf ("%s: \"%s\", %u channels\n", file.string().c_str(), logText (set.GetName()).c_str(),
                 set.getFilterCount());

    set.forEachFilter ([] (unsigned, const filters::FilterImpl& filter) {
        std::string sets;

        for (const auto& [key, data] : filter.getCoefficientSets())
            sets += (sets.empty() ? "" : ", ") + setText (key.sampleRate, data);

        const auto number = filter.GetChannel() + 1; // as the text has it; 0 when it gives none
        std::printf ("  %-4s number %-3u  %s\n", logText (filter.GetName()).c_str(), number,
                     sets.empty() ? "no coefficients" : sets.c_str());
        return true;
    });
}

}

void addCheckDescriptionCommand (CLI::App& program)
{
    const auto file = std::make_shared<std::filesystem::path>();
    auto* const command =
        program.add_subcommand ("check-description", "Check a filter description and list its filters");

    command->add_option ("file", *file, "The filter description (XML)")->required()->type_name ("FILE");
    command->footer (
        "\nWhether the filters suit a receiver is checked by `veltra download`, before it sends anything.\n");
    command->callback ([file] { printDescription (*file, *readDescription (*file).set); });
}

}
