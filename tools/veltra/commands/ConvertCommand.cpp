// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>

#include <zlib.h>

#include "common/SettingKeys.h"
#include "filters/FIIRSourceImpl.h"
#include "filters/FilterSetsImpl.h"
#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/DescriptionFile.h"
#include "tools/veltra/filters/ResponseSource.h"
#include "tools/veltra/report/ConversionReport.h"
#include "tools/veltra/report/LeadInNote.h"
#include "tools/veltra/report/ResponsePlot.h"
#include "tools/veltra/terminal/Progress.h"
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
    std::filesystem::path dump;
    std::filesystem::path plot;
    bool force = false;
};

/** The structure's parameters as a receiver announces them. */
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

/** The settings that the module would read. */
juce::PropertySet settingsOf (const SessionOptions& session, const std::filesystem::path& dump)
{
    auto settings = propertySet (session.settings);

    if (! dump.empty())
        settings.setValue (keys::kBlobPath, juce::String (dump.string()));

    return settings;
}

/** Copies what a conversion has dumped: it does not notice itself what it could not write. */
void writeDump (const std::filesystem::path& source, const std::filesystem::path& folder)
{
    for (const auto& entry : std::filesystem::directory_iterator (source))
    {
        OutputFile output (folder / entry.path().filename());
        std::ifstream content (entry.path(), std::ios::binary);

        if (content.peek() != std::ifstream::traits_type::eof())
            output.stream() << content.rdbuf();
        else
            output.stream();

        output.complete();
    }
}

/** The receiver's channels that the filters of a set name. */
std::vector<std::uint32_t> channelsOf (filters::FilterSetsImpl& set)
{
    std::vector<std::uint32_t> channels;
    veltratune_io::Filter* filter = nullptr;

    while (set.GetFilter (static_cast<std::uint32_t> (channels.size()), &filter))
        channels.push_back (filter->GetChannel());

    return channels;
}

bool holdsSections (const filters::FilterSetsImpl& set)
{
    for (std::uint32_t i = 0; const auto* filter = set.getFilterImpl (i); ++i)
        for (const auto& [key, coefficients] : filter->getCoefficientSets())
            if (! coefficients.sections.empty())
                return true;

    return false;
}

/** All filters of a set. Warnings that the module would log are printed. */
class ConversionSource final : public filters::FIIRSourceImpl
{
public:
    ConversionSource (filters::FilterSetsImpl& set, std::uint32_t rate) : FIIRSourceImpl (set, channelsOf (set), rate)
    {
    }

    void log (int level, const std::string& message) override
    {
        if (level == 3)
            notes() << "Warning: " << message << ".\n";
        else if (level >= 4 && firstError.empty())
            firstError = message;
    }

    /** More precise than the conversion's result; empty when no error was logged. */
    const std::string& error() const noexcept { return firstError; }

private:
    std::string firstError;
};

/** Only the dual-rate structures need silence in front of a filter. */
std::vector<std::string> channelsThatNeedLeadIn (const std::vector<ConvertedChannel>& channels)
{
    std::vector<std::string> names;

    for (const auto& channel : channels)
        if (channel.dualRate && needsLeadIn (channel.wanted))
            names.push_back (channel.name);

    return names;
}

std::vector<ComparedResponse> responsesOf (const std::vector<ConvertedChannel>& channels)
{
    std::vector<ComparedResponse> responses;

    for (const auto& channel : channels)
        responses.push_back ({ channel.name, channel.error });

    return responses;
}

std::string titleOf (const ConvertOptions& options)
{
    return options.topology + " at " + std::to_string (options.sampleRate) + " Hz, " + std::to_string (options.taps)
           + " taps" + (options.sections ? ", " + std::to_string (*options.sections) + " sections" : "");
}

void convert (const ConvertOptions& options, const SessionOptions& session)
{
    checkMayWrite (options.output, options.force);

    if (! options.plot.empty())
        checkMayWrite (options.plot, options.force);

    const auto description = readDescription (options.input);
    auto& set = *description.set;
    ConversionSource source (set, options.sampleRate);

    auto result = juce::Result::ok();
    juce::MemoryBlock blob;
    const auto parameters = parametersOf (options);
    std::optional<Transient> dump;

    if (! options.dump.empty())
    {
        makeOutputFolder (options.dump);
        dump.emplace (makePrivateFolder);
    }

    auto settings = settingsOf (session, dump ? dump->path() : std::filesystem::path());
    Progress progress;
    const auto handler = topology::createTopology (options.topology, [&progress] (float fraction, const juce::String&) {
        progress.show (static_cast<double> (fraction), [] { return std::string ("designing"); });
        return true;
    });

    // Sections are copied as their designer made them; without any the structure designs its own.
    ResponseSource responses (source);
    const bool design = topology::findTopology (options.topology)->hasSections && ! holdsSections (set);
    handler->createFilterData (result, design ? static_cast<topology::IFIRSource&> (responses) : source, parameters,
                               options.sampleRate, blob, settings);
    progress.endLine();

    if (result.failed())
        throw Failure (kExitConversion,
                       "The filters could not be converted: "
                           + (source.error().empty() ? result.getErrorMessage().toStdString() : source.error()) + ".");

    if (dump)
        writeDump (dump->path(), options.dump);

    OutputFile output (options.output);
    output.stream().write (static_cast<const char*> (blob.getData()), static_cast<std::streamsize> (blob.getSize()));
    output.complete();

    const auto checksum = crc32_z (0, static_cast<const Bytef*> (blob.getData()), blob.getSize());
    char checksumText[16];
    std::snprintf (checksumText, sizeof (checksumText), "%08lx", checksum);
    textOutput() << options.output.string() << ": " << options.topology << " at " << options.sampleRate << " Hz, "
                 << source.getChannelCount() << " channels, " << blob.getSize() << " bytes, crc32 " << checksumText
                 << "\n";

    const auto channels =
        examineConversion (source, { juce::String (options.topology),
                                     parameters,
                                     options.sampleRate,
                                     source.getChannelCount(),
                                     { static_cast<const std::uint8_t*> (blob.getData()), blob.getSize() } });
    printConversion (textOutput(), channels);
    printResult ({ { "file", options.output.string() },
                   { "topology", options.topology },
                   { "sample_rate_Hz", options.sampleRate },
                   { "bytes", blob.getSize() },
                   { "crc32", checksumText },
                   { "channels", objectsOf (channels) } },
                 "");

    for (const auto& channel : channels)
        if (channel.error.isSilent)
            notes() << "Warning: " << channel.name << " plays silence with this conversion.\n";

    notes() << leadInNote ("with the structure " + options.topology + ",", channelsThatNeedLeadIn (channels));

    if (! options.plot.empty())
        plotResponses (options.plot, titleOf (options), options.sampleRate, responsesOf (channels));
}

}

CLI::Option* addTopologyOption (CLI::App& command, std::string& name, const std::string& about)
{
    std::vector<std::string> names;

    for (const auto& structure : topology::topologies())
        names.push_back (structure.name);

    std::string list = names.front();

    for (std::size_t i = 1; i < names.size(); ++i)
        list += (i + 1 < names.size() ? ", " : " or ") + names[i];

    return command.add_option ("--topology", name, about + ": " + list)
        ->check (CLI::IsMember (names).description (""))
        ->type_name ("NAME");
}

void addConvertCommand (CLI::App& program, const SessionOptions& session)
{
    const auto options = std::make_shared<ConvertOptions>();
    auto* const command = program.add_subcommand ("convert", "Convert filters for a topology without a receiver");

    command->add_option ("file", options->input, "The filter description (XML)")->required()->type_name ("FILE");
    addTopologyOption (*command, options->topology, "The receiver's filter structure")->required();
    command->add_option ("--rate", options->sampleRate, "Sample rate in Hz")
        ->required()
        ->check (CLI::Range (1u, 1536000u).description (""))
        ->type_name ("HZ");
    command->add_option ("--taps", options->taps, "FIR taps that the structure has for each channel")
        ->required()
        ->type_name ("N");
    command->add_option ("--sections", options->sections, "Second-order sections for each channel (FIIR)")
        ->type_name ("N");
    command->add_option ("--latency", options->latency, "Latency in samples (VLFIR, VLFIR2)")->type_name ("SAMPLES");
    command->add_option ("-o,--output", options->output, "The bytes that a receiver would load")
        ->required()
        ->type_name ("FILE");
    command->add_option ("--dump", options->dump, "Folder for diagnostic files of the conversion (VLFIR, VLFIR2)")
        ->type_name ("DIR");
    command
        ->add_option ("--plot", options->plot,
                      "Draw the filter, what is played, and the error, one panel a channel (.svg or .png)")
        ->type_name ("FILE");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (
        "\nThe bytes are those that a download sends for this rate to a receiver whose channels are the filters' channels.\n"
        "The printed CRC-32 is zlib's. For FIIR, sections are designed when the description has none. Settings given by\n"
        "--setting apply as in the module.\n");
    command->callback ([options, &session] { convert (*options, session); });
}

}
