// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <ostream>

#include "dsp/BandSplitFilters.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/PeakGain.h"
#include "tools/veltra/formats/ReceiverBlock.h"
#include "tools/veltra/report/ErrorTable.h"
#include "topology/DeviceFilter.h"
#include "topology/Topology.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::host {

namespace {

using namespace topology;

/** The generation that the user named; otherwise the one that the layout of the bytes shows. */
VLFIRGeneration chooseGeneration (const std::string& topology, std::span<const std::uint8_t> bytes)
{
    const auto* const named = findTopology (topology);
    return named != nullptr && named->dualRate ? *named->dualRate
                                               : findVLFIRGeneration (bytes).value_or (VLFIRGeneration::second);
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

struct InspectOptions
{
    std::filesystem::path file;
    ReceiverBlock block;
    std::filesystem::path tapFolder;
};

void writeTaps (const std::filesystem::path& folder, const std::string& name, unsigned sampleRate,
                const Eigen::VectorXf& taps)
{
    if (folder.empty() || taps.size() == 0)
        return;

    OutputFile output (folder / (name + ".wav"));
    writeFloatWav (output, std::max (sampleRate, 1u), { taps.data(), static_cast<std::size_t> (taps.size()) });
    output.complete();
}

void inspectDualRate (const InspectOptions& options)
{
    const auto& bytes = options.block.bytes;
    const auto contents = readVLFIRBlob (bytes, chooseGeneration (options.block.topology, bytes));

    textOutput() << inputName (options.file) << ": " << nameOf (contents.generation) << ", " << bytes.size()
                 << " bytes, " << contents.sampleRate << " Hz, " << contents.channelCount << " channels\n";
    auto channels = Json::array();

    for (std::size_t i = 0; i < contents.records.size(); ++i)
    {
        printRecord (i, contents.records[i], contents.generation);
        channels.push_back (objectOf (contents.records[i], contents.generation));
    }

    for (const auto& problem : contents.problems)
        textOutput() << "wrong: " << problem << "\n";

    printResult ({ { "file", options.file.string() },
                   { "topology", nameOf (contents.generation) },
                   { "bytes", bytes.size() },
                   { "sample_rate_Hz", contents.sampleRate },
                   { "channels", std::move (channels) },
                   { "problems", contents.problems } },
                 contents.problems.empty() ? "Every offset and count fits the file.\n" : "");

    if (! contents.problems.empty())
        throw Failure (kExitInput, inputName (options.file) + " is not a valid blob.");

    for (std::size_t i = 0; i < contents.channels.size(); ++i)
    {
        const auto name = "channel_" + std::to_string (i);
        writeTaps (options.tapFolder, name + "_high", contents.sampleRate, contents.channels[i].highRateTaps);
        writeTaps (options.tapFolder, name + "_low", contents.sampleRate / dsp::kDecimation,
                   contents.channels[i].lowRateTaps);
    }
}

/** A section's poles, as text and as object. */
Json describeSection (std::size_t place, const dsp::FIIRSection& section, std::uint32_t sampleRate, std::string& text)
{
    const double discriminant = 0.25 * section.a1 * section.a1 - section.a2;
    const double radius = dsp::poleRadius (section.a1, section.a2);
    const double angle = discriminant < 0.0 ? std::atan2 (std::sqrt (-discriminant), -0.5 * section.a1) : NAN;
    const double frequency_Hz = sampleRate > 0 ? angle * sampleRate / (2.0 * std::numbers::pi) : NAN;

    Json object { { "a1", shortNumber (section.a1) }, { "a2", shortNumber (section.a2) },
                  { "b0", shortNumber (section.b0) }, { "b1", shortNumber (section.b1) },
                  { "pole_Hz", frequency_Hz },        { "pole_radius", radius } };
    text += "  section " + std::to_string (place);

    for (const auto* const name : { "a1", "a2", "b0", "b1" })
        text += std::string (" ") + name + " " + object[name].dump();

    text += "; "
            + (std::isfinite (frequency_Hz) ? "poles at " + fixedText (frequency_Hz, 2) + " Hz, radius "
                                            : std::string ("outermost pole at radius "))
            + fixedText (radius, 7) + "\n";
    return object;
}

/** @param wrong  receives what keeps the filter from being played */
Json describeFloats (std::uint32_t place, const FloatFilter& filter, std::uint32_t sampleRate, std::string& text,
                     std::string& wrong)
{
    const auto& taps = filter.taps;
    Eigen::Index peak = 0, end = taps.size();
    const auto largest = taps.cwiseAbs().maxCoeff (&peak);
    const bool finite = taps.allFinite();
    const auto gain_dB = finite ? peakGain_dB ({ taps.data(), static_cast<std::size_t> (taps.size()) }) : NAN;

    while (end > 0 && taps[end - 1] == 0.0f)
        --end;

    Json object { { "taps", taps.size() }, { "used_taps", end },           { "peak", shortNumber (largest) },
                  { "peak_tap", peak },    { "gain_of_taps_dB", gain_dB }, { "sections", Json::array() } };
    text += "channel " + std::to_string (place) + ": " + std::to_string (taps.size()) + " taps, " + std::to_string (end)
            + " up to the last that is not 0, peak " + object["peak"].dump() + " at " + std::to_string (peak)
            + ", largest gain of the taps " + fixedText (gain_dB, 2) + " dB\n";

    if (! finite)
        wrong = "has taps that are not finite";

    for (std::size_t i = 0; i < filter.sections.size(); ++i)
    {
        const auto& section = filter.sections[i];

        if (section == dsp::FIIRSection {})
            continue;

        object["sections"].push_back (describeSection (i, section, sampleRate, text));

        if (! (dsp::poleRadius (section.a1, section.a2) < 1.0))
            wrong = "has a section that is not stable";
    }

    return object;
}

void inspectFloats (const InspectOptions& options)
{
    const auto data = deviceData (options.block, options.file);
    auto channels = Json::array(), problems = Json::array();
    std::string text;

    for (std::uint32_t i = 0; i < data.channelCount; ++i)
    {
        std::string problem;
        const auto filter = readDeviceFilter (data, i, problem);

        if (! filter)
            throw Failure (kExitInput, inputName (options.file) + ": " + problem + ".");

        channels.push_back (describeFloats (i, filter->floats, data.sampleRate, text, problem));
        writeTaps (options.tapFolder, "channel_" + std::to_string (i), data.sampleRate, filter->floats.taps);

        if (! problem.empty())
            problems.push_back ("channel " + std::to_string (i) + " " + problem);
    }

    printResult ({ { "file", options.file.string() },
                   { "topology", options.block.topology },
                   { "bytes", options.block.bytes.size() },
                   { "sample_rate_Hz", data.sampleRate > 0 ? Json (data.sampleRate) : Json() },
                   { "channels", std::move (channels) },
                   { "problems", problems } },
                 inputName (options.file) + ": " + options.block.topology + ", "
                     + std::to_string (options.block.bytes.size()) + " bytes, " + std::to_string (data.channelCount)
                     + " channels\n" + text);

    if (! problems.empty())
        throw Failure (kExitInput,
                       inputName (options.file) + " cannot be played: " + problems.front().get<std::string>() + ".");
}

void inspect (InspectOptions& options)
{
    options.block.bytes = readBlockFile (options.file);
    const auto* const named = findTopology (options.block.topology);

    if (! options.tapFolder.empty())
        makeOutputFolder (options.tapFolder);

    if (named != nullptr && ! named->dualRate)
        inspectFloats (options);
    else
        inspectDualRate (options);
}

}

void addInspectCommand (CLI::App& program)
{
    const auto options = std::make_shared<InspectOptions>();
    auto* const command = program.add_subcommand ("inspect", "Take a receiver's filter data apart");

    command->add_option ("file", options->file, "The bytes that `veltra convert` or a download made")
        ->required()
        ->type_name ("FILE");
    addTopologyOption (*command, options->block.topology,
                       "The filter structure whose data it is, by default the dual-rate one that the layout shows");
    addBlockOptions (*command, options->block);
    command->add_option ("--taps", options->tapFolder, "Folder for the taps of each channel as WAV files")
        ->type_name ("DIR");
    command->footer (
        "\nExamples: veltra inspect dual.bin\n"
        "          veltra inspect blob.bin --topology FIIR --channels 8 --sections 30 --rate 48000 --taps taps\n");
    command->callback ([options] { inspect (*options); });
}

}
