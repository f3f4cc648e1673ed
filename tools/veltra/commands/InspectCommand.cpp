// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/report/ErrorTable.h"
#include "topology/Topology.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::host {

namespace {

using namespace topology;

std::vector<std::uint8_t> readBlob (const std::filesystem::path& file)
{
    // More than the largest buffer of any device: what follows is reported by the length.
    constexpr std::streamsize longest = 1 << 20;

    std::ifstream stream (file, std::ios::binary);
    std::vector<std::uint8_t> bytes (longest);
    stream.read (reinterpret_cast<char*> (bytes.data()), longest);

    if (stream.bad() || (stream.gcount() == 0 && ! stream.eof()))
        throw Failure (kExitInput, file.string() + " cannot be read.");

    bytes.resize (static_cast<std::size_t> (stream.gcount()));
    return bytes;
}

/** The generation that the user named; otherwise the one that the layout of the bytes shows. */
VLFIRGeneration chooseGeneration (const std::string& topology, std::span<const std::uint8_t> bytes)
{
    const auto* const named = findTopology (topology);
    return named != nullptr ? *named->dualRate : findVLFIRGeneration (bytes).value_or (VLFIRGeneration::second);
}

const char* nameOf (VLFIRGeneration generation)
{
    const auto all = topologies();
    return std::find_if (all.begin(), all.end(), [&] (const auto& entry) { return entry.dualRate == generation; })
        ->name;
}

std::string gain_dB (std::uint32_t word)
{
    const double gain = fromFixed (word, vlfir::gainFractionBits);
    return fixedText (20.0 * std::log10 (gain), 2) + " dB";
}

void printRecord (std::size_t place, const VLFIRRecord& record, VLFIRGeneration generation)
{
    std::printf ("channel %zu: word %u (id %u), gain %s, high-rate delay %u, reserved %u\n", place, record.channelWord,
                 record.channelWord / layoutOf (generation).channelFactor, gain_dB (record.gain).c_str(),
                 record.highRateDelay, record.reserved);
    std::printf ("  high-rate taps %u from byte %u, low-rate taps %u from byte %u\n", record.highRateTapCount,
                 record.highRateOffset, record.lowRateTapCount, record.lowRateOffset);

    if (generation == VLFIRGeneration::second)
        std::printf ("  stage gains 1 to 4: %s, %s, %s, %s\n", gain_dB (record.stageGain1).c_str(),
                     gain_dB (record.stageGain2).c_str(), gain_dB (record.stageGain3).c_str(),
                     gain_dB (record.stageGain4).c_str());
}

void inspect (const std::filesystem::path& file, const std::string& topology)
{
    const auto bytes = readBlob (file);
    const auto contents = readVLFIRBlob (bytes, chooseGeneration (topology, bytes));

    std::printf ("%s: %s, %zu bytes, %u Hz, %u channels\n", file.string().c_str(), nameOf (contents.generation),
                 bytes.size(), contents.sampleRate, contents.channelCount);

    for (std::size_t i = 0; i < contents.records.size(); ++i)
        printRecord (i, contents.records[i], contents.generation);

    for (const auto& problem : contents.problems)
        std::printf ("wrong: %s\n", problem.c_str());

    if (! contents.problems.empty())
        throw Failure (kExitInput, file.string() + " is not a valid blob.");

    std::printf ("Every offset and count fits the file.\n");
}

}

void addInspectCommand (CLI::App& program)
{
    struct Options
    {
        std::filesystem::path file;
        std::string topology;
    };

    const auto options = std::make_shared<Options>();
    auto* const command = program.add_subcommand ("inspect", "Take a dual-rate receiver's filter data apart");

    command->add_option ("file", options->file, "The bytes that `veltra convert` or a download made")
        ->required()
        ->type_name ("FILE");
    addTopologyOption (*command, options->topology,
                       "The filter structure whose data it is, by default the one that the layout shows", true);
    command->callback ([options] { inspect (options->file, options->topology); });
}

}
