// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/formats/ReceiverBlock.h"
#include "tools/veltra/report/ErrorTable.h"
#include "topology/DeviceFilter.h"

namespace veltra::host {

namespace {

struct PlayOptions
{
    ReceiverBlock block;
    std::filesystem::path file, input, output;
    std::uint32_t place = 0;
    bool force = false;
};

void playBlock (PlayOptions& options)
{
    checkMayWrite (options.output, options.force);
    auto& block = options.block;
    block.bytes = readBlockFile (options.file);
    const auto sound = readMonoAudio (options.input);

    if (block.sampleRate != 0 && block.sampleRate != sound.sampleRate)
        throw Failure (kExitInput, options.input.string() + " has " + std::to_string (sound.sampleRate)
                                       + " Hz, and the block is for " + std::to_string (block.sampleRate) + " Hz.");

    block.sampleRate = sound.sampleRate;
    const auto data = deviceData (block, options.file);

    if (data.sampleRate != sound.sampleRate)
        throw Failure (kExitInput, options.input.string() + " has " + std::to_string (sound.sampleRate)
                                       + " Hz, and the block says " + std::to_string (data.sampleRate) + " Hz.");

    std::string problem;
    const auto filter = topology::readDeviceFilter (data, options.place, problem);

    if (! filter)
        throw Failure (kExitInput, inputName (options.file) + ": " + problem + ".");

    const auto in =
        Eigen::Map<const Eigen::VectorXf> (sound.samples.data(), static_cast<Eigen::Index> (sound.samples.size()));
    const auto out = topology::play (*filter, in, data.sampleRate);

    if (! out.allFinite())
        throw Failure (kExitInput, inputName (options.file) + " plays numbers that are not finite.");

    OutputFile output (options.output);
    writeFloatWav (output, data.sampleRate, { out.data(), static_cast<std::size_t> (out.size()) });
    output.complete();

    const auto* const entry = topology::findTopology (data.topologyName);
    const double peak = out.cwiseAbs().maxCoeff();
    printResult ({ { "file", options.output.string() },
                   { "topology", block.topology },
                   { "sample_rate_Hz", data.sampleRate },
                   { "channel", options.place },
                   { "samples", out.size() },
                   { "latency_samples", entry->delay },
                   { "peak_dBFS", 20.0 * std::log10 (peak) } },
                 options.output.string() + ": " + block.topology + ", channel " + std::to_string (options.place)
                     + " of " + std::to_string (data.channelCount) + ", " + std::to_string (out.size())
                     + " samples, latency of the structure " + std::to_string (entry->delay) + ", peak "
                     + fixedText (20.0 * std::log10 (peak), 2) + " dBFS\n");
}

}

void addBlockOptions (CLI::App& command, ReceiverBlock& block)
{
    command.add_option ("--channels", block.channels, "Channels in the block (FIR, FIIR)")
        ->check (CLI::Range (1u, 1024u).description (""))
        ->type_name ("N");
    command.add_option ("--sections", block.sections, "Second-order sections for each channel (FIIR)")
        ->check (CLI::Range (0u, 4096u).description (""))
        ->type_name ("N");
    command.add_option ("--rate", block.sampleRate, "Sample rate in Hz")
        ->check (CLI::Range (1u, 1536000u).description (""))
        ->type_name ("HZ");
}

void addPlayCommand (CLI::App& program)
{
    const auto options = std::make_shared<PlayOptions>();
    auto* const command = program.add_subcommand ("play", "Play a sound through a receiver's filter data");

    command->add_option ("file", options->file, "The bytes that `veltra convert` or a download made")
        ->required()
        ->type_name ("BLOCK");
    addTopologyOption (*command, options->block.topology, "The filter structure that runs them")->required();
    addBlockOptions (*command, options->block);
    command->add_option ("--taps", options->block.taps, "FIR taps for each channel (FIR, FIIR)")
        ->check (CLI::Range (1u, 1u << 24).description (""))
        ->type_name ("N");
    command->add_option ("--channel", options->place, "Place of the channel in the block, from 0")->type_name ("N");
    command->add_option ("--in", options->input, "The sound: a mono file")->required()->type_name ("WAV");
    command->add_option ("-o,--output", options->output, "What the channel plays: WAV, 32-bit float, mono")
        ->required()
        ->type_name ("WAV");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (
        "\nThe output holds the sound and the filter's response behind it, of sections one second. Of taps and channels (FIR,\n"
        "FIIR), one is enough.\n"
        "Example: veltra play blob.bin --topology FIR --channels 8 --channel 2 --in voice.wav -o centre.wav\n");
    command->callback ([options] { playBlock (*options); });
}

}
