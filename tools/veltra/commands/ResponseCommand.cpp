// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <memory>
#include <set>
#include <sstream>

#include "common/Text.h"
#include "filters/FIIRSourceImpl.h"
#include "filters/FilterSetsImpl.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/DescriptionFile.h"
#include "tools/veltra/formats/ReceiverBlock.h"
#include "tools/veltra/measure/ResponseCurve.h"
#include "tools/veltra/report/ErrorTable.h"
#include "tools/veltra/report/Gnuplot.h"
#include "tools/veltra/session/StrictNumber.h"
#include "topology/Conversion.h"

namespace veltra::host {

namespace {

constexpr std::size_t kMostResponses = 64; // in one picture or table
constexpr double kShownBefore_ms = 5.0, kShownBehind_ms = 45.0;

struct ResponseOptions
{
    std::vector<std::filesystem::path> files;
    ReceiverBlock block;
    std::vector<std::string> channels;
    std::filesystem::path plot, text;
    bool phase = false, groupDelay = false, impulse = false, step = false, force = false;
    double octaves = 0.0;
};

struct NamedResponse
{
    std::string name;
    unsigned sampleRate = 0;
    Eigen::VectorXf samples;
    std::vector<CurvePoint> curve {};
};

class QuietSource final : public filters::FIIRSourceImpl
{
public:
    using FIIRSourceImpl::FIIRSourceImpl;
    void log (int, const std::string&) override {}
};

/** All filters of a description at all rates that they are given for. */
void addDescription (const std::filesystem::path& file, std::vector<NamedResponse>& responses)
{
    const auto description = readDescription (file);
    auto& set = *description.set;
    std::vector<std::uint32_t> numbers;
    std::vector<std::string> names;
    std::set<std::uint32_t> rates;

    set.forEachFilter ([&] (unsigned, const filters::FilterImpl& filter) {
        numbers.push_back (filter.GetChannel());
        names.push_back (filter.GetName());

        for (const auto& [key, data] : filter.getCoefficientSets())
            rates.insert (key.sampleRate);

        return true;
    });

    for (const auto rate : rates)
    {
        QuietSource source (set, numbers, rate);

        for (unsigned i = 0; i < names.size(); ++i)
            if (const auto& response = source.getFIR (i); response.size() > 0)
                responses.push_back ({ names[i], rate, response });
    }
}

void addBlock (const std::filesystem::path& file, ReceiverBlock block, std::vector<NamedResponse>& responses)
{
    block.bytes = readBlockFile (file);
    const auto data = deviceData (block, file);

    if (data.sampleRate == 0)
        throw Failure (kExitUsage, inputName (file) + " does not say its sample rate; give it by --rate 48000.");

    for (std::uint32_t i = 0; i < data.channelCount; ++i)
    {
        std::string problem;
        auto response = topology::deviceResponse (data, i, problem);

        if (! response)
            throw Failure (kExitInput, inputName (file) + ": " + problem + ".");

        responses.push_back ({ std::to_string (i), data.sampleRate, std::move (*response) });
    }
}

void addAudio (const std::filesystem::path& file, std::vector<NamedResponse>& responses)
{
    const auto channels = audioChannels (file);

    for (unsigned i = 0; i < channels; ++i)
    {
        const auto audio = readMonoAudio (file, { i, {} });
        responses.push_back ({ file.stem().string() + (channels > 1 ? ":" + std::to_string (i) : ""), audio.sampleRate,
                               Eigen::Map<const Eigen::VectorXf> (audio.samples.data(),
                                                                  static_cast<Eigen::Index> (audio.samples.size())) });
    }
}

std::vector<NamedResponse> responsesOf (const ResponseOptions& options)
{
    std::vector<NamedResponse> responses;

    for (const auto& file : options.files)
        if (! options.block.topology.empty())
            addBlock (file, options.block, responses);
        else if (equalsIgnoringCase (file.extension().string(), ".xml"))
            addDescription (file, responses);
        else
            addAudio (file, responses);

    if (! options.channels.empty())
        std::erase_if (responses, [&] (const auto& response) {
            return std::ranges::find (options.channels, response.name) == options.channels.end();
        });

    if (options.block.topology.empty() && options.block.sampleRate != 0)
        std::erase_if (responses,
                       [&] (const auto& response) { return response.sampleRate != options.block.sampleRate; });

    if (responses.empty() || responses.size() > kMostResponses)
        throw Failure (kExitInput, "There are " + std::to_string (responses.size()) + " such responses; expected 1 to "
                                       + std::to_string (kMostResponses) + ".");

    for (auto& response : responses)
    {
        if (! response.samples.allFinite())
            throw Failure (kExitInput, response.name + " has samples that are not finite.");

        response.curve = curveOf (response.samples, response.sampleRate, options.octaves);
    }

    return responses;
}

/** "1/12" of an octave. */
double octavesOf (const std::string& text)
{
    const auto slash = text.find ('/');
    const auto above = strictNumber<double> (std::string_view (text).substr (0, slash));
    const auto below =
        slash == text.npos ? std::optional (1.0) : strictNumber<double> (std::string_view (text).substr (slash + 1));

    if (! above || ! below || ! (*above / *below > 0.0 && *above / *below <= 2.0))
        throw Failure (kExitUsage, "'" + text + "' is not a part of an octave; expected for example 1/12.");

    return *above / *below;
}

void writeText (const ResponseOptions& options, const NamedResponse& response)
{
    OutputFile output (options.text);
    auto& stream = output.stream();
    stream << "* " << logText (response.name) << ", " << response.sampleRate
           << " Hz\n* Freq(Hz) SPL(dB) Phase(degrees)\n";

    for (const auto& point : response.curve)
        stream << fixedText (point.frequency_Hz, 4) << " " << fixedText (std::max (-400.0, point.magnitude_dB), 4)
               << " " << fixedText (point.phase_degrees, 4) << "\n";

    output.complete();
}

/** Draws the panels that were asked for, one above the other, each with all responses. */
void draw (const ResponseOptions& options, const std::vector<NamedResponse>& responses)
{
    struct Panel
    {
        const char* label;
        int column;
        bool isOverTime;
    };

    std::vector<Panel> panels { { "dB", 2, false } };

    for (const auto& [wanted, panel] : { std::pair (options.phase, Panel { "degrees", 3, false }),
                                         { options.groupDelay, { "ms", 4, false } },
                                         { options.impulse, { "impulse", 2, true } },
                                         { options.step, { "step", 3, true } } })
        if (wanted)
            panels.push_back (panel);

    std::ostringstream script;
    double top_dB = -HUGE_VAL, peak_ms = HUGE_VAL;

    for (std::size_t i = 0; i < responses.size(); ++i)
    {
        const auto& response = responses[i];
        Eigen::Index peak = 0;
        response.samples.cwiseAbs().maxCoeff (&peak);
        peak_ms = std::min (peak_ms, 1000.0 * static_cast<double> (peak) / response.sampleRate);
        script << "$f" << i << " << EOD\n";

        for (const auto& point : response.curve)
        {
            top_dB = std::max (top_dB, point.magnitude_dB);
            script << point.frequency_Hz << " " << std::max (-400.0, point.magnitude_dB) << " " << point.phase_degrees
                   << " " << point.groupDelay_ms << "\n";
        }

        script << "EOD\n$t" << i << " << EOD\n";
        const auto steps = stepResponse (response.samples);
        const auto last =
            static_cast<Eigen::Index> (static_cast<double> (peak) + kShownBehind_ms * response.sampleRate / 1000.0);

        for (Eigen::Index n = 0; n < std::min (response.samples.size(), last); ++n)
            script << 1000.0 * static_cast<double> (n) / response.sampleRate << " " << response.samples[n] << " "
                   << steps[n] << "\n";

        script << "EOD\n";
    }

    top_dB = std::isfinite (top_dB) ? 10.0 * std::ceil (top_dB / 10.0 + 0.1) : 0.0;
    script << "set multiplot layout " << panels.size() << ",1\nset grid lt 1 lc '#d8d8d8' lw 0.6\nset lmargin 9\n";

    for (const auto& panel : panels)
    {
        script << "set ylabel " << gnuplotText (panel.label) << "\nset yrange [*:*]\n";

        if (panel.isOverTime)
            script << "unset logscale x\nset xrange [" << std::max (0.0, peak_ms - kShownBefore_ms) << ":"
                   << peak_ms + kShownBehind_ms << "]\nset xlabel 'ms'\n";
        else
            script << "set logscale x\nset xrange [10:24000]\nset xlabel 'Hz'\n";

        if (panel.column == 2 && ! panel.isOverTime)
            script << "set yrange [" << top_dB - 60.0 << ":" << top_dB << "]\n";
        else if (panel.column == 4)
            script << "set yrange [" << std::max (0.0, peak_ms - 20.0) << ":" << peak_ms + 60.0 << "]\n";

        script << "plot ";

        for (std::size_t i = 0; i < responses.size(); ++i)
            script << (i == 0 ? "" : ", ") << (panel.isOverTime ? "$t" : "$f") << i << " using 1:" << panel.column
                   << " with lines lw 1.3 title "
                   << gnuplotText (responses[i].name + ", " + std::to_string (responses[i].sampleRate) + " Hz")
                   << " noenhanced";

        script << "\nunset key\n";
    }

    script << "unset multiplot\n";
    drawPicture (options.plot, 960, 130 + 300 * static_cast<unsigned> (panels.size()), script.str());
}

void showResponses (ResponseOptions& options)
{
    for (const auto* const file : { &options.plot, &options.text })
        if (! file->empty())
            checkMayWrite (*file, options.force);

    const auto responses = responsesOf (options);

    if (! options.text.empty())
    {
        if (responses.size() > 1)
            throw Failure (kExitUsage, "--text takes one response, and there are " + std::to_string (responses.size())
                                           + "; choose by --channel and --rate.");

        writeText (options, responses.front());
    }

    if (! options.plot.empty())
        draw (options, responses);

    auto list = Json::array();
    std::string text;

    for (const auto& response : responses)
    {
        Eigen::Index peak = 0;
        response.samples.cwiseAbs().maxCoeff (&peak);
        const auto& loudest = *std::ranges::max_element (response.curve, {}, &CurvePoint::magnitude_dB);
        const double peak_ms = 1000.0 * static_cast<double> (peak) / response.sampleRate;
        list.push_back ({ { "name", response.name },
                          { "sample_rate_Hz", response.sampleRate },
                          { "samples", response.samples.size() },
                          { "peak_ms", peak_ms },
                          { "largest_dB", loudest.magnitude_dB },
                          { "largest_at_Hz", loudest.frequency_Hz } });
        text += response.name + ": " + std::to_string (response.samples.size()) + " samples at "
                + std::to_string (response.sampleRate) + " Hz, peak at " + fixedText (peak_ms, 2) + " ms, largest "
                + fixedText (loudest.magnitude_dB, 2) + " dB at " + fixedText (loudest.frequency_Hz, 1) + " Hz\n";
    }

    printResult ({ { "responses", list } }, text);
}

}

void addResponseCommand (CLI::App& program)
{
    const auto options = std::make_shared<ResponseOptions>();
    auto* const command =
        program.add_subcommand ("response", "Show responses: magnitude, phase, delay, impulse and step");

    command
        ->add_option ("files", options->files,
                      "Sound files with responses, filter descriptions (.xml), or with --topology a receiver's bytes")
        ->required()
        ->type_name ("FILE");
    command->add_option ("--channel", options->channels, "Only these, by name, apart by \",\"; of bytes by place")
        ->delimiter (',')
        ->allow_extra_args (false)
        ->type_name ("NAME[,NAME]");
    addTopologyOption (*command, options->block.topology, "The filter structure that runs the bytes");
    addBlockOptions (*command, options->block);
    command->add_option ("--taps", options->block.taps, "FIR taps for each channel (FIR, FIIR)")
        ->check (CLI::Range (1u, 1u << 24).description (""))
        ->type_name ("N");
    command->add_option ("--plot", options->plot, "Draw the magnitudes (.svg or .png)")->type_name ("FILE");
    command->add_flag ("--phase", options->phase, "Draw the phases as well");
    command->add_flag ("--group-delay", options->groupDelay, "Draw the group delays as well");
    command->add_flag ("--impulse", options->impulse, "Draw the impulse responses as well");
    command->add_flag ("--step", options->step, "Draw the step responses as well");
    command
        ->add_option_function<std::string> (
            "--smooth", [options] (const std::string& text) { options->octaves = octavesOf (text); },
            "Mean of the power over a part of an octave, for example 1/12")
        ->type_name ("N/M");
    command->add_option ("--text", options->text, "One response as lines of frequency, dB and degrees (.frd)")
        ->type_name ("FILE");
    command->add_flag ("--force", options->force, "Replace output files that exist");
    command->footer ("\nWith a description, --rate chooses the responses of one rate.\n"
                     "Example: veltra response fl.wav --smooth 1/12 --plot fl.svg --group-delay --text fl.frd\n");
    command->callback ([options] { showResponses (*options); });
}

}
