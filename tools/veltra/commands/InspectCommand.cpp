// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>

#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/output/Json.h"
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
    constexpr std::size_t longest = 1 << 20;

    const auto content = readInput (file, longest);
    return { content.begin(), content.end() };
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

double gain_dB (std::uint32_t word) { return 20.0 * std::log10 (fromFixed (word, vlfir::gainFractionBits)); }

std::string gainText (std::uint32_t word) { return fixedText (gain_dB (word), 2) + " dB"; }

void printRecord (std::size_t place, const VLFIRRecord& record, VLFIRGeneration generation)
{
    auto& text = textOutput();
    text << "channel " << place << ": word " << record.channelWord << " (id "
         << record.channelWord / layoutOf (generation).channelFactor << "), gain " << gainText (record.gain)
         << ", high-rate delay " << record.highRateDelay << ", reserved " << record.reserved << "\n"
         << "  high-rate taps " << record.highRateTapCount << " from byte " << record.highRateOffset
         << ", low-rate taps " << record.lowRateTapCount << " from byte " << record.lowRateOffset << "\n";

    if (generation == VLFIRGeneration::second)
        text << "  stage gains 1 to 4: " << gainText (record.stageGain1) << ", " << gainText (record.stageGain2) << ", "
             << gainText (record.stageGain3) << ", " << gainText (record.stageGain4) << "\n";
}

Json objectOf (const VLFIRRecord& record, VLFIRGeneration generation)
{
    Json object { { "word", record.channelWord },
                  { "number", record.channelWord / layoutOf (generation).channelFactor },
                  { "gain_dB", gain_dB (record.gain) },
                  { "high_rate_delay_samples", record.highRateDelay },
                  { "high_rate_taps", record.highRateTapCount },
                  { "high_rate_offset_bytes", record.highRateOffset },
                  { "low_rate_taps", record.lowRateTapCount },
                  { "low_rate_offset_bytes", record.lowRateOffset } };

    if (generation == VLFIRGeneration::second)
        object["stage_gains_dB"] = { gain_dB (record.stageGain1), gain_dB (record.stageGain2),
                                     gain_dB (record.stageGain3), gain_dB (record.stageGain4) };

    return object;
}

void inspect (const std::filesystem::path& file, const std::string& topology)
{
    const auto bytes = readBlob (file);
    const auto contents = readVLFIRBlob (bytes, chooseGeneration (topology, bytes));

    textOutput() << inputName (file) << ": " << nameOf (contents.generation) << ", " << bytes.size() << " bytes, "
                 << contents.sampleRate << " Hz, " << contents.channelCount << " channels\n";
    auto channels = Json::array();

    for (std::size_t i = 0; i < contents.records.size(); ++i)
    {
        printRecord (i, contents.records[i], contents.generation);
        channels.push_back (objectOf (contents.records[i], contents.generation));
    }

    for (const auto& problem : contents.problems)
        textOutput() << "wrong: " << problem << "\n";

    printResult ({ { "file", file.string() },
                   { "topology", nameOf (contents.generation) },
                   { "bytes", bytes.size() },
                   { "sample_rate_Hz", contents.sampleRate },
                   { "channels", std::move (channels) },
                   { "problems", contents.problems } },
                 contents.problems.empty() ? "Every offset and count fits the file.\n" : "");

    if (! contents.problems.empty())
        throw Failure (kExitInput, inputName (file) + " is not a valid blob.");
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
