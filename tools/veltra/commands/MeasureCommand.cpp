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
    bool force = false;
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

void report (const CaptureRecorder& recorder, float peak, const MeasureOptions& options)
{
    const auto rate = static_cast<double> (options.plan.sampleRate);
    const auto seconds = static_cast<double> (recorder.samples().size()) / rate;
    const auto missing = missingSeconds (recorder.arrivals(), rate);
    const bool isIncomplete = missing && *missing > kNotableGap_s;

    char text[128];
    std::snprintf (text, sizeof (text), ": %.2f s at %u Hz in %zu packets, ", seconds, options.plan.sampleRate,
                   recorder.arrivals().size());
    printResult ({ { "file", options.output.string() },
                   { "sample_rate_Hz", options.plan.sampleRate },
                   { "samples", recorder.samples().size() },
                   { "seconds", seconds },
                   { "packets", recorder.arrivals().size() },
                   { "peak_dBFS", decibels (peak) },
                   { "missing_s", isIncomplete ? *missing : 0.0 } },
                 options.output.string() + text + levelText (peak) + "\n");

    if (isIncomplete)
    {
        std::snprintf (text, sizeof (text), "%.0f", 1000.0 * *missing);
        notes() << "Note: about " << text << " ms of audio are missing; packets were lost, or the receiver stalled.\n";
    }
}

void runMeasurement (const SessionOptions& sessionOptions, MeasureOptions& options)
{
    checkMayWrite (options.output, options.force);
    OutputFile output (options.output); // before the loudspeakers play in vain

    DeviceSession session (sessionOptions);
    checkDevice (session.device(), options);

    for (const auto& channel : options.channels)
        options.plan.channels.push_back (channelNumber (session.device(), channel));

    CaptureRecorder recorder (captureCapacity (options.plan));
    LevelMeter meter (recorder, options.plan.sampleRate);
    const CancelScope cancel;

    const bool complete = measure (session, options.plan, recorder, [&] {
        meter.update();
        return ! cancel.requested();
    });

    const float peak = meter.finish();

    if (cancel.requested())
        throw Failure (kExitCancelled, "Cancelled; nothing was written.");

    if (! complete)
        throw Failure (kExitReceiver, "The stimulus did not come to an end.");

    if (recorder.overflow() > 0)
        throw Failure (kExitReceiver, "The receiver sent more audio than --longest and --tail make room for.");

    if (recorder.samples().empty())
        throw Failure (kExitReceiver, "The receiver sent no audio.");

    writeFloatWav (output, options.plan.sampleRate, recorder.samples());
    output.complete();
    report (recorder, peak, options);
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
    command->add_option ("-o,--output", options->output, "The recording: WAV, 32-bit float, mono")
        ->required()
        ->type_name ("FILE");
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (
        "\nThe module does not pass on the numbers of audio packets, so lost ones are not listed; a note says when less\n"
        "audio came than time passed. Ctrl-C stops the signal and puts the receiver back into listening mode.\n");

    command->callback ([options, &session] {
        options->plan.stimulus = stimulusNames().at (options->stimulus);
        runMeasurement (session, *options);
    });
}

}
