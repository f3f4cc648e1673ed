#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>

#include <zlib.h>

#include "filters/FIIRSourceImpl.h"
#include "filters/FilterDescriptionParser.h"
#include "filters/FilterSetsImpl.h"
#include "tools/veltra/Commands.h"
#include "tools/veltra/ExitStatus.h"
#include "tools/veltra/OutputFile.h"
#include "tools/veltra/Progress.h"
#include "tools/veltra/ResponseSource.h"
#include "tools/veltra/TextFile.h"
#include "topology/Topology.h"

namespace veltra::host {

namespace {

struct ConvertOptions
{
    std::filesystem::path input;
    std::filesystem::path output;
    std::string topology;
    std::uint32_t sampleRate = 0;
    std::uint32_t taps = 0;
    std::optional<std::uint32_t> sections;
    std::optional<std::uint32_t> latency;
    bool force = false;
};

/** The structure's parameters in the words of a receiver. */
juce::StringPairArray parametersOf (const ConvertOptions& options)
{
    juce::StringPairArray parameters;
    parameters.set ("NbrOfFIRTaps", juce::String (options.taps));

    if (options.sections)
        parameters.set ("NbrOfIIRSections", juce::String (*options.sections));

    if (options.latency)
        parameters.set ("latency", juce::String (*options.latency));

    return parameters;
}

void readFilters (const std::filesystem::path& file, filters::FilterSetsImpl& set)
{
    const auto text = readTextFile (file);

    if (parser::FIIR::parse (text.c_str(), &set, "Veltra") != parser::FIIR::Success)
        throw Failure (kExitInput, file.string() + " is no filter description.");
}

/** All filters of a set, each for the receiver's channel that it names. */
filters::FIIRSourceImpl sourceOf (filters::FilterSetsImpl& set, std::uint32_t sampleRate)
{
    std::vector<std::uint32_t> channels;
    veltratune_io::Filter* filter = nullptr;

    while (set.GetFilter (static_cast<std::uint32_t> (channels.size()), &filter))
        channels.push_back (filter->GetChannel());

    return { set, std::move (channels), sampleRate };
}

bool holdsSections (const filters::FilterSetsImpl& set)
{
    for (std::uint32_t i = 0; const auto* filter = set.getFilterImpl (i); ++i)
        for (const auto& [key, coefficients] : filter->getCoefficientSets())
            if (! coefficients.sections.empty())
                return true;

    return false;
}

void convert (const ConvertOptions& options)
{
    checkMayWrite (options.output, options.force);

    filters::FilterSetsImpl set;
    readFilters (options.input, set);
    auto source = sourceOf (set, options.sampleRate);

    auto result = juce::Result::ok();
    juce::MemoryBlock blob;
    juce::PropertySet noSettings;
    Progress progress (stdout, isTerminal (stdout));
    const auto handler = topology::createTopology (options.topology, [&progress] (float fraction, const juce::String&)
    {
        progress.show (static_cast<double> (fraction), [] { return std::string ("designing"); });
        return true;
    });

    // Sections are copied as their designer made them; without any the structure designs its own.
    ResponseSource responses (source);
    const bool design = options.topology == "FIIR" && ! holdsSections (set);
    handler->createFilterData (result, design ? static_cast<topology::IFIRSource&> (responses) : source, parametersOf (options),
                               options.sampleRate, blob, noSettings);
    progress.endLine();

    if (result.failed())
        throw Failure (kExitConversion, "The filters could not be converted: " + result.getErrorMessage().toStdString() + ".");

    OutputFile output (options.output);
    output.stream().write (static_cast<const char*> (blob.getData()), static_cast<std::streamsize> (blob.getSize()));
    output.complete();

    const auto checksum = crc32_z (0, static_cast<const Bytef*> (blob.getData()), blob.getSize());
    std::printf ("%s: %s at %u Hz, %u channels, %zu bytes, crc32 %08lx\n", options.output.string().c_str(),
                 options.topology.c_str(), options.sampleRate, source.getChannelCount(), blob.getSize(), checksum);
}

}

void addConvertCommand (CLI::App& program)
{
    const auto options = std::make_shared<ConvertOptions>();
    auto* const command = program.add_subcommand ("convert", "Convert filters for a topology without a receiver");

    command->add_option ("file", options->input, "The filter description (XML)")->required()->type_name ("FILE");
    command->add_option ("--topology", options->topology, "The receiver's filter structure: FIR, FIIR, VLFIR or VLFIR2")
        ->required()->check (CLI::IsMember ({ "FIR", "FIIR", "VLFIR", "VLFIR2" }).description (""))->type_name ("NAME");
    command->add_option ("--rate", options->sampleRate, "Sample rate in Hz")
        ->required()->check (CLI::Range (1u, 1536000u).description (""))->type_name ("HZ");
    command->add_option ("--taps", options->taps, "FIR taps that the structure has for each channel")
        ->required()->type_name ("N");
    command->add_option ("--sections", options->sections, "Second-order sections for each channel (FIIR)")->type_name ("N");
    command->add_option ("--latency", options->latency, "Latency in samples (VLFIR, VLFIR2)")->type_name ("SAMPLES");
    command->add_option ("-o,--output", options->output, "The bytes that a receiver would load")->required()->type_name ("FILE");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer ("\nThe bytes are those that a download sends for this rate to a receiver whose channels are the filters' channels.\n"
                     "The printed CRC-32 is zlib's. For FIIR, a description without sections has them designed.\n");
    command->callback ([options] { convert (*options); });
}

}
