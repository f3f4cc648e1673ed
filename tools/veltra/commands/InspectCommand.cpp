// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/veltra/commands/Commands.h"
#include "topology/FixedPoint.h"
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

/** The blob does not say of which generation it is: the user may, and otherwise its layout tells. */
VLFIRGeneration chooseGeneration (const std::string& topology, std::span<const std::uint8_t> bytes)
{
    if (! topology.empty())
        return topology == "VLFIR" ? VLFIRGeneration::first : VLFIRGeneration::second;

    return findVLFIRGeneration (bytes).value_or (VLFIRGeneration::second);
}

std::string gain_dB (std::uint32_t word)
{
    char text[32];
    std::snprintf (text, sizeof (text), "%+.2f dB", 20.0 * std::log10 (fromFixed (word, vlfir::gainFractionBits)));
    return text;
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

    std::printf ("%s: %s, %zu bytes, %u Hz, %u channels\n", file.string().c_str(),
                 layoutOf (contents.generation).topologyName, bytes.size(), contents.sampleRate, contents.channelCount);

    for (std::size_t i = 0; i < contents.records.size(); ++i)
        printRecord (i, contents.records[i], contents.generation);

    for (const auto& problem : contents.problems)
        std::printf ("wrong: %s\n", problem.c_str());

    if (! contents.problems.empty())
        throw Failure (kExitInput, file.string() + " is no sound blob.");

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
    command->add_option ("--topology", options->topology, "VLFIR or VLFIR2; without it the layout of the bytes tells")
        ->check (CLI::IsMember ({ "VLFIR", "VLFIR2" }).description (""))
        ->type_name ("NAME");
    command->callback ([options] { inspect (options->file, options->topology); });
}

}
