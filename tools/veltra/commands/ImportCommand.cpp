// SPDX-License-Identifier: GPL-3.0-or-later
#include <iostream>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"

namespace veltra::host {

namespace {

constexpr unsigned kLongestLeadIn = 1u << 20;

}

const char* const kImportNotes =
    "\nChannels: --channels FL,FR,C,SW=11 gives the numbers 1, 2, 3 and 11; a filter goes to the receiver's channel\n"
    "with the number below (`veltra info` lists them from 0). Without --channels they are numbered in the order of the\n"
    "files. A file of --map has a line CHANNEL RATE FILE for each response, FILE relative to its own folder.\n"
    "Without --project the project is named after the output.\n";

void addImportOptions (CLI::App& command, ImportOptions& import, const char* technology)
{
    command.add_option ("files", import.files, "Mono WAV files, named after channel and sample rate: FL_48000.wav")
        ->type_name ("WAV");
    command.add_option ("--project", import.project, "Name of the project, which the receiver shows")
        ->type_name ("NAME");
    command.add_option ("--technology", import.technology, "What the filters were designed for")
        ->type_name ("NAME")
        ->default_val (technology);
    command.add_option ("--map", import.mapping, "A text file that lists further responses")->type_name ("FILE");
    command.add_option ("--channels", import.channelOrder, "The channels in the receiver's order")->type_name ("LIST");
    command.add_option ("--lead-in", import.leadIn, "Silence to put in front of every response alike")
        ->check (CLI::Range (0u, kLongestLeadIn).description (""))
        ->type_name ("SAMPLES");
}

void addImportCommand (CLI::App& program)
{
    struct Options
    {
        ImportOptions import;
        std::filesystem::path output;
        bool force = false;
    };

    const auto options = std::make_shared<Options>();
    auto* const command = program.add_subcommand ("import", "Make a filter description out of impulse responses");

    command->add_option ("-o,--output", options->output, "The filter description (XML)")
        ->required()
        ->type_name ("FILE");
    addImportOptions (*command, options->import, "FIR");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (kImportNotes);

    command->callback ([options] {
        checkMayWrite (options->output, options->force);

        if (options->import.project.empty())
            options->import.project = options->output.stem().string();

        const auto description = importFilters (options->import, std::cout, std::cerr);
        writeFilterDescription (options->output, description);

        std::size_t responses = 0;

        for (const auto& channel : description.channels)
            responses += channel.responses.size();

        std::cout << options->output.string() << ": \"" << description.project << "\", " << description.channels.size()
                  << " channels, " << responses << " responses\n";
    });
}

}
