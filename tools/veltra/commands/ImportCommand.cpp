// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <map>
#include <memory>
#include <optional>

#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/receiver/device/Profile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/ImportFiles.h"
#include "tools/veltra/session/ReceiverChannels.h"
#include "tools/veltra/session/ReceiverDescription.h"
#include "tools/veltra/session/StrictNumber.h"

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

/** An option that gives channels values, NAME=VALUE. */
void addChannelValues (CLI::App& command, const std::string& name, std::map<std::string, double>& values,
                       const std::string& about, const std::string& form,
                       std::optional<double> (*read) (const std::string&))
{
    command
        .add_option_function<std::vector<std::string>> (
            name,
            [&values, name, form, read] (const std::vector<std::string>& items) {
                for (const auto& item : items)
                {
                    const auto equals = item.find ('=');
                    const auto value = equals == item.npos ? std::nullopt : read (item.substr (equals + 1));

                    if (! value || ! values.emplace (item.substr (0, equals), *value).second)
                        throw Failure (kExitUsage, "'" + item + "' is not what " + name
                                                       + " takes, or names a channel twice; expected " + form + ".");
                }
            },
            about)
        ->allow_extra_args (false)
        ->type_name (form);
}

}

const char* const kImportNotes =
    "\nChannels: --for takes names, order and numbers from a receiver or from a profile of veltra-receiver.\n"
    "--channels FL,FR,C,SW=11 gives the numbers 1, 2, 3 and 11, each one above the receiver's own (`veltra info`).\n"
    "Without either, channels are numbered in the order of the files.\n"
    "A file of --map has a line CHANNEL RATE [gain=DB] [delay=4.2ms] FILE for each response, FILE relative to its own folder.\n"
    "An equaliser becomes one tap and parallel sections, within 0.02 dB of what its text says.\n"
    "Examples: veltra import --channel FL=room.wav:0 --channel FR=room.wav:1 -o filters.xml\n"
    "          veltra import --eq FL=ParametricEQ.txt --rates 44100,48000,96000 --gain FL=-3 -o filters.xml\n"
    "          veltra import --raw f32@48000 --channel FL=rps.pcm -o filters.xml\n"
    "Without --project the project is named after the output.\n";

void addImportOptions (CLI::App& command, ImportOptions& import, const char* technology)
{
    command
        .add_option (
            "files", import.files,
            "Mono files named after channel and sample rate, FL_48000.wav, or a file with the channels of --channels")
        ->type_name ("FILE");
    command
        .add_option ("--channel", import.channelFiles,
                     "A channel's file, or channel N of a file, counted from 0; once for each rate")
        ->allow_extra_args (false)
        ->type_name ("NAME=FILE[:N]");
    command
        .add_option ("--eq", import.equalizers,
                     "A channel's equaliser: text of Equalizer APO, AutoEq or REW, made exactly at each of --rates")
        ->allow_extra_args (false)
        ->type_name ("NAME=FILE");
    command
        .add_option ("--camilladsp", import.camilla,
                     "A camilladsp configuration; --channels names its channels in their order")
        ->type_name ("YAML");
    command
        .add_option ("--rates", import.rates,
                     "Sample rates at which equalisers and configurations are made, apart by \",\"")
        ->delimiter (',')
        ->allow_extra_args (false)
        ->check (CLI::Range (8000u, 1536000u).description (""))
        ->type_name ("HZ[,HZ]");
    command
        .add_option ("--section-taps", import.sectionTaps,
                     "FIR taps in front of an equaliser's sections (FIIR receivers)")
        ->check (CLI::Range (1u, 65536u).description (""))
        ->default_val (1u)
        ->type_name ("N");
    command
        .add_option_function<std::string> (
            "--raw", [&import] (const std::string& text) { import.raw = parseRawFormat (text); },
            "What .pcm, .raw and .dbl files hold, little-endian: s16, s24, s32, f32 or f64")
        ->type_name ("FORMAT@HZ");
    command
        .add_option ("--text", import.textRate,
                     "Sample rate of .txt, .csv and .dat files that do not say it themselves")
        ->check (CLI::Range (1u, 1536000u).description (""))
        ->type_name ("HZ");
    command.add_flag ("--align", import.align,
                      "Keep the times in REW's texts: time 0 is at the same place in all responses");
    addChannelValues (command, "--gain", import.gains_dB, "A channel's gain in dB", "NAME=DB",
                      [] (const std::string& text) { return strictNumber<double> (text); });
    addChannelValues (command, "--delay", import.delays_ms,
                      "A channel's delay, in milliseconds or in samples of a rate", "NAME=4.2ms|48smp@HZ",
                      [] (const std::string& text) { return delayIn_ms (text); });
    command.add_option ("--project", import.project, "Name of the project, which the receiver shows")
        ->type_name ("NAME");
    command.add_option ("--technology", import.technology, "What the filters were designed for")
        ->type_name ("NAME")
        ->default_val (technology);
    command.add_option ("--map", import.mapping, "A text file that lists further responses")->type_name ("FILE");
    command.add_option ("--channels", import.channelOrder, "The channels in the receiver's order")->type_name ("LIST");
    command
        .add_option_function<std::string> (
            "--for", [&import] (const std::string& receiver) { import.receiverChannels = channelsFor (receiver); },
            "Receiver whose channels these are; --channels then only names the channels of files")
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
