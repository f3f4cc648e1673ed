// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <iostream>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/FilterDesign.h"
#include "tools/veltra/report/DesignPlot.h"
#include "tools/veltra/terminal/Progress.h"

namespace veltra::host {

namespace {

const char* const kFooter =
    "\nA receiver of the FIIR technology has room for a number of taps and sections, which `veltra info` tells; design\n"
    "for exactly these. Errors are energies: what the design misses, against the wanted response in the same octave.\n"
    "With several responses --plot draws one picture for each and puts channel and rate into its name. The pictures\n"
    "need gnuplot.\n";

struct DesignOptions
{
    ImportOptions import;
    DesignSize size;
    std::filesystem::path output, plot;
    bool force = false;
};

void print (const DesignedResponse& design)
{
    std::printf ("%s at %u Hz: error %.1f dB, outermost pole %.6f, %.2f s\n", design.channel.c_str(), design.sampleRate,
                 design.report.error_dB, design.report.poleRadius, design.seconds);

    for (const auto& octave : design.report.octaves)
        std::printf ("%7s", octaveName (octave.frequency).c_str());

    std::printf ("  Hz\n");

    for (const auto& octave : design.report.octaves)
        std::printf ("%7.1f", octave.error_dB);

    std::printf ("  dB\n");
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

void design (const DesignOptions& options)
{
    checkMayWrite (options.output, options.force);

    auto import = options.import;

    if (import.project.empty())
        import.project = options.output.stem().string();

    std::ostream silent (nullptr);
    auto description = importFilters (import, silent, std::cerr);
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
        Progress progress (stdout, isTerminal (stdout));
        designs = designFilters (description, options.size, [&progress] (double fraction) {
            progress.show (fraction, [] { return std::string ("designing"); });
        });
        progress.endLine();
    }

    for (const auto& designed : designs)
    {
        print (designed);

        if (! options.plot.empty())
            plotDesign (plotFile (options.plot, designed.channel, designed.sampleRate, several), designed);
    }

    writeFilterDescription (options.output, description);
    std::printf ("%s: \"%s\", %zu channels, %zu designs\n", options.output.string().c_str(),
                 description.project.c_str(), description.channels.size(), designs.size());
}

}

void addDesignCommand (CLI::App& program)
{
    const auto options = std::make_shared<DesignOptions>();
    auto* const command = program.add_subcommand ("design", "Design FIIR filters after impulse responses");

    command->add_option ("-o,--output", options->output, "The filter description (XML)")
        ->required()
        ->type_name ("FILE");
    command->add_option ("--taps", options->size.taps, "Taps to keep; without it the sample rate divided by 48")
        ->check (CLI::Range (1u, 1u << 20).description (""))
        ->type_name ("N");
    command->add_option ("--sections", options->size.sections, "Parallel second-order sections for the rest")
        ->check (CLI::Range (1u, dsp::maxDesignSections).description (""))
        ->type_name ("N")
        ->capture_default_str();
    command->add_option ("--plot", options->plot, "Draw wanted and designed response (.svg or .png)")
        ->type_name ("FILE");
    addImportOptions (*command, options->import, "FIIR");
    command->add_flag ("--force", options->force, "Replace output files that exist");
    command->footer (std::string (kImportNotes) + kFooter);
    command->callback ([options] { design (*options); });
}

}
