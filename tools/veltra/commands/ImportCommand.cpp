// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/receiver/device/Profile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/session/ReceiverChannels.h"
#include "tools/veltra/session/ReceiverDescription.h"

namespace veltra::host {

namespace {

constexpr unsigned kLongestLeadIn = 1u << 20;

std::vector<ReceiverChannel> channelsIn (const veltraio::Unit& unit, const veltraio::TopologyInfo& info)
{
    return channelsOfReceiver (unit.devices (0), servedRates (unit.devices (0), info));
}

/** The channels of a receiver that is named by its address, by a profile's name or by a profile's file. */
std::vector<ReceiverChannel> channelsFor (const std::string& receiver)
{
    const auto& shipped = veltra::receiver::shippedProfileNames();

    if (std::ranges::find (shipped, receiver) != shipped.end())
    {
        const auto profile = veltra::receiver::shippedProfile (receiver);
        return channelsIn (profile.unit, profile.topologyInfo);
    }

    if (std::filesystem::is_regular_file (receiver))
    {
        std::string problem;
        const auto profile = veltra::receiver::loadProfile (receiver, problem);

        if (! profile)
            throw Failure (kExitInput, problem);

        return channelsIn (profile->unit, profile->topologyInfo);
    }

    if (receiver.find (':') == receiver.npos)
        throw Failure (kExitUsage, "'" + receiver + "' is neither HOST:PORT nor a file nor one of the profiles "
                                       + CLI::detail::join (shipped, ", ") + ".");

    SessionOptions options;
    options.device = deviceSetting (receiver).substr (4);
    const auto description = describeReceiver (options);
    return channelsIn (description.unit, description.topologyInfo);
}

}

const char* const kImportNotes =
    "\nChannels: --for takes names, order and numbers from a receiver or from a profile of veltra-receiver.\n"
    "--channels FL,FR,C,SW=11 gives the numbers 1, 2, 3 and 11, each one above the receiver's own (`veltra info`).\n"
    "Without either, channels are numbered in the order of the files.\n"
    "A file of --map has a line CHANNEL RATE FILE for each response, FILE relative to its own folder.\n"
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
    auto* const order = command.add_option ("--channels", import.channelOrder, "The channels in the receiver's order")
                            ->type_name ("LIST");
    command
        .add_option_function<std::string> (
            "--for", [&import] (const std::string& receiver) { import.receiverChannels = channelsFor (receiver); },
            "Receiver whose channels these are")
        ->excludes (order)
        ->type_name ("HOST:PORT|PROFILE");
    command.add_flag ("--partial", import.partial, "With --for: leave out what only one of both has");
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

        const auto description = importFilters (options->import, textOutput(), notes());
        writeFilterDescription (options->output, description);

        std::size_t responses = 0;

        for (const auto& channel : description.channels)
            responses += channel.responses.size();

        printResult ({ { "file", options->output.string() },
                       { "project", description.project },
                       { "channels", description.channels.size() },
                       { "responses", responses } },
                     options->output.string() + ": \"" + description.project + "\", "
                         + std::to_string (description.channels.size()) + " channels, " + std::to_string (responses)
                         + " responses\n");
    });
}

}
