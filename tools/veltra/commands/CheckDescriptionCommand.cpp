// SPDX-License-Identifier: GPL-3.0-or-later
#include <iomanip>
#include <memory>
#include <sstream>

#include "common/Text.h"
#include "tools/InputFile.h"
#include "tools/output/Json.h"
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
    std::ostringstream text;
    auto channels = Json::array();
    text << inputName (file) << ": \"" << logText (set.GetName()) << "\", " << set.getFilterCount() << " channels\n";

    set.forEachFilter ([&] (unsigned, const filters::FilterImpl& filter) {
        std::string words;
        auto sets = Json::array();

        for (const auto& [key, data] : filter.getCoefficientSets())
        {
            words += (words.empty() ? "" : ", ") + setText (key.sampleRate, data);
            sets.push_back ({ { "sample_rate_Hz", key.sampleRate },
                              { "taps", data.taps.size() },
                              { "sections", data.sections.size() } });
        }

        const auto number = filter.GetChannel() + 1; // as the text has it; 0 when it gives none
        text << "  " << std::left << std::setw (4) << logText (filter.GetName()) << " number " << std::setw (3)
             << number << "  " << (words.empty() ? "no coefficients" : words) << "\n";
        channels.push_back ({ { "name", filter.GetName() }, { "number", number }, { "sets", std::move (sets) } });
        return true;
    });

    printResult ({ { "file", file.string() }, { "project", set.GetName() }, { "channels", std::move (channels) } },
                 text.str());
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
