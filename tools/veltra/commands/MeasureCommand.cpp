// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>

#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/output/SignalWatch.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/measure/Measurement.h"
#include "tools/veltra/measure/Stimuli.h"
#include "tools/veltra/measure/SweepResponse.h"
#include "tools/veltra/report/ErrorTable.h"
#include "tools/veltra/session/ChannelName.h"
#include "tools/veltra/terminal/StatusLine.h"

namespace veltra::host {

namespace {

struct MeasureOptions
{
    MeasurementPlan plan;
    std::vector<std::string> channels;
    std::string stimulus;
    std::filesystem::path output;
    std::filesystem::path impulse; ///< where the impulse response goes
    unsigned takes = 1;
    double length_s = 1.0; ///< of the impulse response
    bool force = false;
};

/** All takes of a measurement. */
struct Takes
{
    std::vector<Eigen::VectorXf> captures;
    std::size_t packets = 0;
    double missing_s = 0.0;
    float peak = 0.0f;
};

/** Missing audio that is reported; the clocks of two devices do not differ by that much in a minute. */
constexpr double kNotableGap_s = 0.02;

constexpr double kMeterFloor_dB = -60.0;
constexpr int kMeterWidth = 30;

std::string levelText (float peak)
{
    if (! (peak > 0.0f))
        return "silence";

    char text[48];
    std::snprintf (text, sizeof (text), "peak %.1f dBFS%s", 20.0 * std::log10 (static_cast<double> (peak)),
                   peak > 1.0f ? " (above full scale)" : "");
    return text;
}

/** What a level is in dB; nothing for silence. */
Json decibels (float peak)
{
    return peak > 0.0f ? Json (std::round (2000.0 * std::log10 (static_cast<double> (peak))) / 100.0) : Json (nullptr);
}

/** Follows a capture: on a terminal several times a second, with --json an event at every second of audio. */
class LevelMeter
{
public:
    LevelMeter (CaptureRecorder& recorderToUse, double rateToUse)
        : recorder (recorderToUse),
          rate (rateToUse),
          line (stderr, isWatched (stderr))
    {
    }

    void update()
    {
        const double seconds = static_cast<double> (recorder.samples().size()) / rate;
        const float peak = recorder.takePeak();
        highest = std::max (highest, peak);
        ofSecond = std::max (ofSecond, peak);

        char start[64];
        std::snprintf (start, sizeof (start), "%5.1f s  %zu packets  ", seconds, recorder.arrivals().size());
        line.show (start + ("[" + levelBar (peak) + "] ") + levelText (peak));

        if (seconds < nextEvent || outputForm().quiet)
            return;

        nextEvent = std::floor (seconds) + 1.0;
        printJson ("level", { { "seconds", seconds },
                              { "packets", recorder.arrivals().size() },
                              { "peak_dBFS", decibels (std::exchange (ofSecond, 0.0f)) } });
    }

    /** @returns  the largest magnitude of all */
    float finish()
    {
        line.endLine();
        highest = std::max (highest, recorder.takePeak());
        return highest;
    }

private:
    static std::string levelBar (float peak)
    {
        return bar (1.0 - 20.0 * std::log10 (static_cast<double> (peak)) / kMeterFloor_dB, kMeterWidth);
    }

    CaptureRecorder& recorder;
    const double rate;
    StatusLine line;
    double nextEvent = 0.0;
    float highest = 0.0f;
    float ofSecond = 0.0f; // since the last event
};

void checkDevice (const veltratune_io::Device2& device, const MeasureOptions& options)
{
    if ((device.GetCapabilities() & veltratune_io::kCapabilityAudioDataCallback) == 0)
        throw Failure (kExitReceiver, "The receiver does not stream its microphone.");

    const auto rate = options.plan.sampleRate;
    const auto result = device.GetStimulusInformation (options.plan.stimulus, rate, nullptr, 0);

    if (result != veltratune_io::kResultOk)
        throw Failure (
            kExitUsage,
            "The receiver has no stimulus " + options.stimulus
                + (result == veltratune_io::kResultBadSampleRate ? " at " + std::to_string (rate) + " Hz" : "")
                + "; `veltra info` lists them.");
}

std::vector<float> joined (const std::vector<Eigen::VectorXf>& captures)
{
    std::vector<float> samples;

    for (const auto& capture : captures)
        samples.insert (samples.end(), capture.begin(), capture.end());

    return samples;
}

/** NAME.part.wav in a folder, or the first NAME.part-2.wav, NAME.part-3.wav, ... that is not there: neither a file nor a link that
    somebody has put there is written to. */
std::filesystem::path freePartName (const std::filesystem::path& folder, const std::string& name)
{
    auto file = folder / (name + ".part.wav");
    std::error_code ignored;

    for (int i = 2;
         std::filesystem::symlink_status (file, ignored).type() != std::filesystem::file_type::not_found && i < 1000;
         ++i)
        file = folder / (name + ".part-" + std::to_string (i) + ".wav");

    return file;
}

/** Keeps what was recorded when a measurement did not come to its end, as NAME.part.wav, see freePartName.
    @param elsewhere  in the folder for temporary files, since there is no room beside the output
    @returns          a sentence about it, which begins with a blank */
std::string keepPart (const MeasureOptions& options, const Takes& takes, bool elsewhere)
{
    const auto samples = joined (takes.captures);
    const auto& target = options.output.empty() ? options.impulse : options.output;

    if (samples.empty())
        return " Nothing was recorded.";

    const auto file =
        freePartName (elsewhere || target == "-" ? std::filesystem::temp_directory_path() : target.parent_path(),
                      target == "-" ? "capture" : target.stem().string());

    try
    {
        OutputFile output (file);
        writeFloatWav (output, options.plan.sampleRate, samples);
        output.complete();
    }
    catch (const Failure& failure)
    {
        return " What was recorded is lost: " + std::string (failure.what());
    }

    return " What was recorded, " + fixedText (static_cast<double> (samples.size()) / options.plan.sampleRate, 2)
           + " s, is in " + file.string() + ".";
}

const char* judgement (double signalToNoise_dB)
{
    return signalToNoise_dB >= 50.0   ? "good"
           : signalToNoise_dB >= 30.0 ? "usable"
                                      : "poor; raise the volume, or use --average";
}

/** The impulse response, its sentences and, for scripts, its figures. */
std::string reportImpulse (const SweepResponse& response, const MeasureOptions& options, Json& object)
{
    object["impulse_file"] = options.impulse.string();
    object["takes"] = options.takes;
    object["signal_to_noise_dB"] = response.signalToNoise_dB;
    object["harmonics"] = Json::array();

    auto text = options.impulse.string() + ": impulse response, "
                + fixedText (1000.0 * static_cast<double> (response.samples.size()) / options.plan.sampleRate, 0)
                + " ms, its largest sample at " + fixedText (1000.0 * kPreRoll_s, 0) + " ms\n";

    if (std::isfinite (response.signalToNoise_dB))
        text += "Signal to noise " + fixedText (response.signalToNoise_dB, 1)
                + " dB: " + judgement (response.signalToNoise_dB) + "\n";

    text += "Distortion:";

    for (std::size_t i = 0; i < response.harmonics_dB.size(); ++i)
    {
        const double level_dB = response.harmonics_dB[i];
        object["harmonics"].push_back ({ { "order", i + 2 }, { "level_dB", level_dB } });
        text += (i == 0 ? " order " : ", order ") + std::to_string (i + 2)
                + (std::isfinite (level_dB) ? " " + fixedText (level_dB, 1) + " dB" : " below the noise");
    }

    return text + "\n";
}

void report (const Takes& takes, const MeasureOptions& options, const std::optional<SweepResponse>& response)
{
    const auto samples = joined (takes.captures).size();
    const auto seconds = static_cast<double> (samples) / options.plan.sampleRate;
    const auto& shown = options.output.empty() ? options.impulse : options.output;

    char figures[128];
    std::snprintf (figures, sizeof (figures), ": %.2f s at %u Hz in %zu packets, ", seconds, options.plan.sampleRate,
                   takes.packets);
    Json object { { "file", options.output.empty() ? Json() : Json (options.output.string()) },
                  { "sample_rate_Hz", options.plan.sampleRate },
                  { "samples", samples },
                  { "seconds", seconds },
                  { "packets", takes.packets },
                  { "peak_dBFS", decibels (takes.peak) },
                  { "missing_s", takes.missing_s } };
    auto text = shown.string() + figures + levelText (takes.peak) + "\n";

    if (response)
        text += reportImpulse (*response, options, object);

    printResult (object, text);

    if (takes.missing_s > 0.0)
        notes() << "Note: about " << fixedText (1000.0 * takes.missing_s, 0)
                << " ms of audio are missing; packets were lost, or the receiver stalled.\n";
}

/** Plays and records once.
    @param takes  receives the capture, also an incomplete one */
void take (DeviceSession& session, const MeasureOptions& options, Takes& takes, const CancelScope& cancel)
{
    CaptureRecorder recorder (captureCapacity (options.plan));
    LevelMeter meter (recorder, options.plan.sampleRate);
    std::optional<Failure> failure;
    bool complete = false;

    try
    {
        complete = measure (session, options.plan, recorder, [&] {
            meter.update();
            return ! cancel.requested();
        });
    }
    catch (const Failure& caught)
    {
        failure.emplace (caught);
    }

    takes.peak = std::max (takes.peak, meter.finish());
    takes.packets += recorder.arrivals().size();
    const auto samples = recorder.samples();

    if (! samples.empty())
        takes.captures.push_back (
            Eigen::Map<const Eigen::VectorXf> (samples.data(), static_cast<Eigen::Index> (samples.size())));

    if (const auto missing = missingSeconds (recorder.arrivals(), options.plan.sampleRate);
        missing && *missing > kNotableGap_s)
        takes.missing_s += *missing;

    if (cancel.requested())
        throw Failure (kExitCancelled, "Cancelled.");

    if (failure)
        throw *failure;

    if (! complete)
        throw Failure (kExitReceiver, "The stimulus did not come to an end.");

    if (recorder.overflow() > 0)
        throw Failure (kExitReceiver, "The receiver sent more audio than --longest and --tail make room for.");

    if (samples.empty())
        throw Failure (kExitReceiver, "The receiver sent no audio.");
}

void writeSamples (std::optional<OutputFile>& output, unsigned rate, std::span<const float> samples)
{
    if (! output)
        return;

    writeFloatWav (*output, rate, samples);
    output->complete();
}

void runMeasurement (const SessionOptions& sessionOptions, MeasureOptions& options)
{
    std::optional<OutputFile> output, impulse; // before the loudspeakers play in vain

    for (auto [file, path] : { std::pair (&output, &options.output), std::pair (&impulse, &options.impulse) })
        if (! path->empty())
        {
            checkMayWrite (*path, options.force);
            file->emplace (*path);
        }

    DeviceSession session (sessionOptions);
    checkDevice (session.device(), options);
    std::optional<tools::Stimulus> stimulus;

    if (impulse)
        stimulus =
            describedStimulus (options.plan.stimulus, options.plan.sampleRate,
                               stimulusDescription (session.device(), options.plan.stimulus, options.plan.sampleRate));

    for (const auto& channel : options.channels)
        options.plan.channels.push_back (channelNumber (session.device(), channel));

    Takes takes;
    std::optional<SweepResponse> response;

    try
    {
        const CancelScope cancel;

        for (unsigned i = 0; i < options.takes; ++i)
            take (session, options, takes, cancel);

        if (stimulus)
            response = evaluateSweep (takes.captures, tools::makeStimulus (*stimulus),
                                      { stimulus->seconds, stimulus->startFrequency, stimulus->endFrequency,
                                        static_cast<double> (options.plan.sampleRate) },
                                      options.length_s);

        writeSamples (output, options.plan.sampleRate, joined (takes.captures));

        if (response)
            writeSamples (impulse, options.plan.sampleRate,
                          { response->samples.data(), static_cast<std::size_t> (response->samples.size()) });
    }
    catch (const Failure& failure)
    {
        throw Failure (failure.status, failure.what() + keepPart (options, takes, failure.status == kExitOutput));
    }

    report (takes, options, response);
}

}

void addMeasureCommand (CLI::App& program, const SessionOptions& session)
{
    const auto options = std::make_shared<MeasureOptions>();
    auto* const command = program.add_subcommand ("measure", "Play a test signal and record the receiver's microphone");

    command->add_option ("--channel", options->channels, "Names or numbers of the channels that play, apart by \",\"")
        ->delimiter (',')
        ->required()
        ->allow_extra_args (false)
        ->type_name ("N[,N]");
    command->add_option ("--stimulus", options->stimulus, "sweep, noise or sub (the level signal for subwoofers)")
        ->check (CLI::IsMember (stimulusNames()).description (""))
        ->default_val ("sweep")
        ->type_name ("NAME");
    command->add_option ("--rate", options->plan.sampleRate, "Sample rate in Hz")
        ->default_val (48000u)
        ->type_name ("HZ");
    command->add_option ("--tail", options->plan.tail_s, "Seconds to record after the signal")
        ->default_val (1.0)
        ->check (CLI::Range (0.0, 60.0).description (""))
        ->type_name ("SECONDS");
    command->add_option ("--longest", options->plan.longest_s, "Give up when the signal has not ended by then")
        ->default_val (60.0)
        ->check (CLI::Range (0.1, 600.0).description (""))
        ->type_name ("SECONDS");
    command
        ->add_option ("-o,--output,--raw", options->output,
                      "The recording: WAV, 32-bit float, mono; of several takes one behind the other")
        ->type_name ("FILE");
    command->add_option ("--impulse", options->impulse, "The impulse response, by the sweep: WAV, 32-bit float, mono")
        ->type_name ("FILE");
    command->add_option ("--average", options->takes, "With --impulse: play the sweep N times and average")
        ->check (CLI::Range (1u, 64u).description (""))
        ->type_name ("N");
    command->add_option ("--length", options->length_s, "Of the impulse response, at most")
        ->default_val (1.0)
        ->check (CLI::Range (0.05, 10.0).description (""))
        ->type_name ("SECONDS");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (
        "\nThe module does not pass on the numbers of audio packets, so lost ones are not listed; a note says when less\n"
        "audio came than time passed. Ctrl-C stops the signal and puts the receiver back into listening mode. What was recorded\n"
        "by then, or before the connection was lost, is kept as NAME.part.wav, or NAME.part-2.wav and so on, beside the output,\n"
        "or, when the disk is full, in the folder for temporary files.\n"
        "Example: veltra measure --channel FL --impulse fl.wav --average 4\n");

    command->callback ([options, &session] {
        if (options->output.empty() && options->impulse.empty())
            throw Failure (kExitUsage, "Nothing would be written; give -o FILE, --impulse FILE, or both.");

        if (! options->impulse.empty() && options->stimulus != "sweep")
            throw Failure (kExitUsage, "--impulse needs the sweep.");

        options->plan.stimulus = stimulusNames().at (options->stimulus);
        runMeasurement (session, *options);
    });
}

}
