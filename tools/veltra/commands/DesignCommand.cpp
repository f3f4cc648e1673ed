// SPDX-License-Identifier: GPL-3.0-or-later
#include <map>
#include <memory>
#include <ostream>

#include "dsp/FIIRDesign.h"
#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/FilterDesign.h"
#include "tools/veltra/report/ErrorTable.h"
#include "tools/veltra/report/ResponsePlot.h"
#include "tools/veltra/terminal/Progress.h"

namespace veltra::host {

namespace {

const char* const kFooter =
    "\nA receiver of the FIIR technology has room for a number of taps and sections, which `veltra info` prints; design\n"
    "for exactly these. With several responses --plot draws one picture for each and puts channel and rate into its\n"
    "name. The pictures need gnuplot.\n";

struct DesignOptions
{
    ImportOptions import;
    DesignSize size;
    std::filesystem::path output, plot;
    bool force = false;
};

/** Prints one table for each sample rate, since the octaves differ. */
void print (const std::vector<DesignedResponse>& designs, unsigned sections)
{
    std::map<unsigned, std::vector<ErrorRow>> tables;

    for (const auto& design : designs)
        tables[design.sampleRate].push_back (
            { design.channel,
              { std::to_string (design.taps), fixedText (design.poleRadius, 6), fixedText (design.seconds, 2) },
              design.error });

    for (const auto& [sampleRate, rows] : tables)
    {
        textOutput() << "FIIR at " << sampleRate << " Hz, " << sections << " sections\n";
        printErrors (textOutput(), { "taps", "outermost pole", "seconds" }, rows);
    }

    textOutput() << kErrorLegend;
}

Json objectsOf (const std::vector<DesignedResponse>& designs, unsigned sections)
{
    auto objects = Json::array();

    for (const auto& design : designs)
        objects.push_back ({ { "channel", design.channel },
                             { "sample_rate_Hz", design.sampleRate },
                             { "taps", design.taps },
                             { "sections", sections },
                             { "pole_radius", design.poleRadius },
                             { "seconds", design.seconds },
                             { "error", objectOf (design.error) } });

    return objects;
}

/** The picture's own name, or one made of it where there are several. */
std::filesystem::path plotFile (const std::filesystem::path& plot, const std::string& channel, unsigned sampleRate,
                                bool several)
{
    if (! several)
        return plot;

    auto name = plot.stem();
    name += "-" + channel + "_" + std::to_string (sampleRate);
    name += plot.extension();
    return plot.parent_path() / name;
}

std::string titleOf (const DesignedResponse& design, const DesignSize& size)
{
    return "FIIR at " + std::to_string (design.sampleRate) + " Hz, " + std::to_string (design.taps) + " taps, "
           + std::to_string (size.sections) + " sections";
}

void design (const DesignOptions& options)
{
    checkMayWrite (options.output, options.force);

    auto import = options.import;

    if (import.project.empty())
        import.project = options.output.stem().string();

    std::ostream silent (nullptr);
    auto description = importFilters (import, silent, notes());
    std::vector<DesignedResponse> designs;
    std::size_t responses = 0;

    for (const auto& channel : description.channels)
        responses += channel.responses.size();

    const bool several = responses > 1;

    for (const auto& channel : description.channels)
        for (const auto& response : channel.responses)
            if (! options.plot.empty())
                checkMayWrite (plotFile (options.plot, channel.name, response.sampleRate, several), options.force);

    {
        Progress progress;
        designs = designFilters (description, options.size, [&progress] (double fraction) {
            progress.show (fraction, [] { return std::string ("designing"); });
        });
        progress.endLine();
    }

    print (designs, options.size.sections);

    if (! options.plot.empty())
        for (const auto& designed : designs)
            plotResponses (plotFile (options.plot, designed.channel, designed.sampleRate, several),
                           titleOf (designed, options.size), designed.sampleRate,
                           { { designed.channel, designed.error } });

    writeFilterDescription (options.output, description);
    printResult ({ { "file", options.output.string() },
                   { "project", description.project },
                   { "channels", description.channels.size() },
                   { "designs", objectsOf (designs, options.size.sections) } },
                 options.output.string() + ": \"" + description.project + "\", "
                     + std::to_string (description.channels.size()) + " channels, " + std::to_string (designs.size())
                     + " designs\n");
}

}

void addDesignCommand (CLI::App& program)
{
    const auto options = std::make_shared<DesignOptions>();
    auto* const command = program.add_subcommand ("design", "Design FIIR filters from impulse responses");

    command->add_option ("-o,--output", options->output, "The filter description (XML)")
        ->required()
        ->type_name ("FILE");
    command->add_option ("--taps", options->size.taps, "Taps to keep, by default the sample rate divided by 48")
        ->check (CLI::Range (1u, 1u << 20).description (""))
        ->type_name ("N");
    command->add_option ("--sections", options->size.sections, "Parallel second-order sections for the rest")
        ->check (CLI::Range (1u, dsp::maxDesignSections).description (""))
        ->type_name ("N")
        ->capture_default_str();
    command->add_option ("--plot", options->plot, "Draw the filter, what is played, and the error (.svg or .png)")
        ->type_name ("FILE");
    addImportOptions (*command, options->import, "FIIR");
    command->add_flag ("--force", options->force, "Replace output files that exist");
    command->footer (std::string (kImportNotes) + kFooter);
    command->callback ([options] { design (*options); });
}

}
