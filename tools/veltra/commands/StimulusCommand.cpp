// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/receiver/sound/Stimulus.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/measure/Stimuli.h"
#include "tools/veltra/report/ErrorTable.h"

namespace veltra::host {

namespace {

struct StimulusOptions
{
    std::string name, description;
    std::uint32_t sampleRate = 48000;
    std::filesystem::path output;
    bool force = false;
};

}

tools::Stimulus describedStimulus (veltratune_io::EStimulus stimulus, std::uint32_t rate,
                                   const std::string& description)
{
    std::string problem;
    const auto parsed = tools::parseStimulus (static_cast<unsigned> (stimulus), rate, description, problem);

    if (! parsed)
        throw Failure (kExitInput, "'" + description + "' does not describe a stimulus: " + problem + ".");

    return *parsed;
}

std::string stimulusDescription (const veltratune_io::Device2& device, veltratune_io::EStimulus stimulus,
                                 std::uint32_t rate)
{
    char text[4096] = {};

    if (device.GetStimulusInformation (stimulus, rate, text, sizeof (text) - 1) != veltratune_io::kResultOk)
        throw Failure (kExitUsage, "The receiver does not have this stimulus at " + std::to_string (rate)
                                       + " Hz; `veltra info` lists them.");

    return text;
}

void addStimulusCommand (CLI::App& program, const SessionOptions& session)
{
    const auto options = std::make_shared<StimulusOptions>();
    auto* const command = program.add_subcommand ("stimulus", "Write a receiver's test signal as a sound file");

    command->add_option ("--stimulus", options->name, "sweep, noise or sub (the level signal for subwoofers)")
        ->check (CLI::IsMember (stimulusNames()).description (""))
        ->default_val ("sweep")
        ->type_name ("NAME");
    const auto* const described =
        command
            ->add_option ("--description", options->description,
                          "The receiver's text about it; without, that of the receiver is asked for")
            ->type_name ("TEXT");
    command->add_option ("--rate", options->sampleRate, "Sample rate in Hz")->default_val (48000u)->type_name ("HZ");
    command->add_option ("-o,--output", options->output, "WAV, 32-bit float, mono")->required()->type_name ("WAV");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (
        "\nExample: veltra stimulus --description 'Seconds=4;PadSeconds=1;Level_dBFS=-12' --rate 48000 -o sweep.wav\n");
    command->callback ([options, &session, described] {
        checkMayWrite (options->output, options->force);
        const auto kind = stimulusNames().at (options->name);

        if (described->count() == 0)
        {
            DeviceSession receiver (session);
            options->description = stimulusDescription (receiver.device(), kind, options->sampleRate);
        }

        const auto samples = tools::makeStimulus (describedStimulus (kind, options->sampleRate, options->description));
        OutputFile output (options->output);
        writeFloatWav (output, options->sampleRate, { samples.data(), static_cast<std::size_t> (samples.size()) });
        output.complete();
        const double seconds = static_cast<double> (samples.size()) / options->sampleRate;
        printResult ({ { "file", options->output.string() },
                       { "sample_rate_Hz", options->sampleRate },
                       { "samples", samples.size() },
                       { "seconds", seconds },
                       { "description", options->description } },
                     options->output.string() + ": " + options->name + ", " + fixedText (seconds, 2) + " s at "
                         + std::to_string (options->sampleRate) + " Hz\n");
    });
}

}
