// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tools/CommandLine.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/output/Completion.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/platform/Process.h"
#include "tools/receiver/device/SlotReport.h"
#include "tools/receiver/network/Announcer.h"
#include "tools/receiver/network/Receiver.h"
#include "tools/receiver/replay/Replay.h"

namespace {

using namespace veltra;
using namespace veltra::receiver;

/** The command line. */
struct Arguments
{
    Receiver::Options options;
    std::string profile = "seven-one";
    std::string replay;
    std::vector<std::string> faults;
    std::string faultFile;
    std::string log = "events";
    bool announce = false;
    std::string name;
    Extension extension = Extension::features;
};

StopSignal* stopOnSignal = nullptr;

void readArguments (CLI::App& app, Arguments& arguments)
{
    auto& options = arguments.options;
    auto& measurement = options.measurement;
    app.add_option ("--port", options.port, "TCP port; 0 takes a free one, which is printed")->capture_default_str();
    app.add_option ("--bind", options.bindAddress, "IPv4 address to listen on")->capture_default_str();
    app.add_option ("--profile", arguments.profile,
                    "Description of the receiver: a file, or stereo, seven-one or twelve")
        ->type_name ("FILE")
        ->capture_default_str();
    app.add_option ("--replay", arguments.replay,
                    "Say what a receiver said in a recording of `veltra trace`, and where the host leaves it")
        ->type_name ("FILE");
    app.add_option ("--folder", options.folder, "Write each slot into this folder when its download is complete")
        ->type_name ("DIR");
    app.add_option ("--fault", arguments.faults, "A fault to simulate, see below; may be repeated")
        ->type_name ("FAULT");
    app.add_option ("--fault-file", arguments.faultFile, "A file of faults, one per line")->type_name ("FILE");
    app.add_option ("--room", measurement.room.folder,
                    "Folder with the room's impulse responses, measured_CHANNEL_RATE.wav")
        ->type_name ("DIR");
    app.add_option ("--room-delay", measurement.room.delay_ms, "Delay in ms of channels without a response there")
        ->capture_default_str();
    app.add_option ("--noise", measurement.noise_dBFS, "RMS level of the microphone's noise in dBFS, or -inf")
        ->capture_default_str();
    app.add_option ("--speed", measurement.speed, "Speed of the microphone's stream, times real time")
        ->capture_default_str();
    app.add_flag ("--announce", arguments.announce, "Answer searches on the network of --bind, so that hosts find it");
    app.add_option ("--name", arguments.name, "Name to announce; by default the model's");
    app.add_option ("--extension", arguments.extension,
                    "How the announced description gives the port: features or port")
        ->transform (CLI::CheckedTransformer (std::map<std::string, Extension> { { "features", Extension::features },
                                                                                 { "port", Extension::port } })
                         .description (""))
        ->type_name ("FORM")
        ->default_str ("features");
    app.add_flag ("--json", outputForm().json, "Print on standard output as JSON, one object a line, see docs/json.md");
    app.add_flag ("--quiet", outputForm().quiet, "The same as --log nothing");
    app.add_option ("--log", arguments.log, "What to write to standard error: nothing, events or messages")
        ->check (CLI::IsMember ({ "nothing", "events", "messages" }))
        ->capture_default_str();
    app.footer (
        "A fault is one argument in the shell's quotes, for example\n"
        "  --fault \"refuse FilterDataChunk 3 'flash busy'\"\n"
        "In a file it is one line without these quotes. A TEXT or FIELDS with blanks needs quotes inside the\n"
        "fault, ' or \". TYPE is a message (FilterDataChunk), a kind of request (GetVolume), * for every message,\n"
        "AudioData or connect; WHICH is 3, 3-5, 3+ or *:\n"
        + faultHelp() + "\nThe exit status is 0 after SIGINT or SIGTERM, or:\n"
        + exitStatusHelp ({ kExitInternal, kExitUsage, kExitInput, kExitOutput, kExitNetwork }));
}

Profile chooseProfile (const std::string& name)
{
    const auto shipped = shippedProfileNames();

    if (std::find (shipped.begin(), shipped.end(), name) != shipped.end())
        return shippedProfile (name);

    std::string error;
    auto loaded = loadProfile (name, error);

    if (! loaded)
        throw Failure (kExitInput,
                       error + (std::filesystem::exists (name) ? "" : ", and no built-in profile has this name"));

    return *loaded;
}

void addFaults (const std::string& text, const std::string& origin, std::vector<Fault>& faults)
{
    std::string error;
    const auto parsed = parseFaults (text, error);

    if (! parsed)
        throw Failure (kExitInput, origin + ": " + error);

    faults.insert (faults.end(), parsed->begin(), parsed->end());
}

std::vector<Fault> chooseFaults (const Arguments& arguments)
{
    std::vector<Fault> faults;

    for (const auto& fault : arguments.faults)
    {
        const auto countBefore = faults.size();
        const auto origin = "--fault \"" + fault + "\"";
        addFaults (fault, origin, faults);

        if (faults.size() == countBefore)
            throw Failure (kExitInput, origin + " contains no fault");
    }

    if (! arguments.faultFile.empty())
    {
        constexpr std::size_t largest = 1u << 20;
        const auto text = readInput (arguments.faultFile, largest);

        if (text.size() > largest)
            throw Failure (kExitInput, inputName (arguments.faultFile) + " is too large for a file of faults");

        addFaults (text, inputName (arguments.faultFile), faults);
    }

    return faults;
}

/** Standard output is read by scripts: whole lines, flushed at once; with --json an object instead. */
void print (std::string_view event, const Json& object, const std::vector<std::string>& lines)
{
    printJson (event, object);

    for (const auto& line : lines)
        textOutput() << line << '\n';

    textOutput() << std::flush;
}

void printSlot (std::uint32_t device, std::uint32_t slotIndex, const Slot& slot)
{
    if (slot.state != Slot::State::empty)
        print ("slot", slotObject (device, slotIndex, slot), describeSlot (device, slotIndex, slot));
}

void printAllSlots (const Receiver& receiver, int deviceCount)
{
    bool isEmpty = true;

    for (int device = 0; device < deviceCount; ++device)
    {
        const auto index = static_cast<std::uint32_t> (device);
        std::uint32_t slotIndex = 0;

        for (const auto& slot : receiver.slots (index))
        {
            isEmpty = isEmpty && slot.state == Slot::State::empty;
            printSlot (index, slotIndex++, slot);
        }
    }

    if (isEmpty)
        textOutput() << "all slots are empty" << std::endl;
}

Announcement announcementOf (const Profile& profile, const Arguments& arguments, std::uint16_t port)
{
    const auto& unit = profile.unit;
    return { .friendlyName = arguments.name.empty() ? unit.name() : arguments.name,
             .manufacturer = unit.manufacturer(),
             .model = unit.name(),
             .serialNumber = unit.serialnumber(),
             .port = port,
             .extension = arguments.extension };
}

/** From now on SIGINT and SIGTERM end the wait for them. */
StopSignal& watchSignals()
{
    static StopSignal stop; // a signal may still arrive after main has ended
    stopOnSignal = &stop;
    std::signal (SIGINT, [] (int) { stopOnSignal->raise(); });
    std::signal (SIGTERM, [] (int) { stopOnSignal->raise(); });
    platform::ignoreBrokenPipes();
    return stop;
}

/** A second signal ends the program at once. */
void waitForSignal (StopSignal& stop)
{
    while (stop.pause (std::chrono::hours (1)))
        ;

    std::signal (SIGINT, SIG_DFL);
    std::signal (SIGTERM, SIG_DFL);
}

void replay (const Arguments& arguments)
{
    auto& stop = watchSignals();
    const auto& options = arguments.options;
    Replay player (arguments.replay, options.bindAddress, options.port, [] (const std::string& text) {
        print ("replay", { { "text", text } }, { text });
    });
    const auto address = options.bindAddress + ":" + std::to_string (player.port());
    print ("listening", { { "address", address }, { "replay", arguments.replay } }, { "Listening on " + address });
    waitForSignal (stop);
}

void run (Arguments& arguments)
{
    if (! arguments.replay.empty())
        return replay (arguments);

    const auto profile = chooseProfile (arguments.profile);
    auto& options = arguments.options;
    options.faults = chooseFaults (arguments);
    options.recordedBytes = 0;

    if (! options.folder.empty())
        makeOutputFolder (options.folder);

    std::mutex printing;
    options.onDownload = [&] (std::uint32_t device, std::uint32_t slotIndex, const Slot& slot) {
        const std::scoped_lock guard (printing);
        printSlot (device, slotIndex, slot);
    };

    if (arguments.log != "nothing" && ! outputForm().quiet)
        options.log = [all = arguments.log == "messages"] (LogDetail detail, const std::string& text) {
            if (all || detail == LogDetail::events)
                std::cerr << text + '\n' << std::flush;
        };

    auto& stop = watchSignals();
    Receiver receiver (profile, options);
    print ("listening", { { "address", receiver.address() }, { "profile", arguments.profile } },
           { "Listening on " + receiver.address() });

    std::optional<Announcer> announcer;

    if (arguments.announce)
    {
        announcer.emplace (announcementOf (profile, arguments, receiver.port()), options.bindAddress,
                           [&] (const std::string& text) {
                               if (options.log)
                                   options.log (LogDetail::events, text);
                           });
        const auto name = arguments.name.empty() ? profile.unit.name() : arguments.name;
        print ("announced", { { "name", name } }, { "Announced as " + name });
    }

    waitForSignal (stop);
    announcer.reset();
    receiver.endSessions (HostSession::Ending::close);
    receiver.waitFor ([&] { return receiver.openSessions() == 0; });
    print ("stopped", Json::object(), { "Stopped" });
    printAllSlots (receiver, profile.unit.devices_size());
    finishStandardOutput();

    if (receiver.hasWriteFailed())
        throw Failure (kExitOutput, "Not every slot could be written to " + options.folder.string() + ".");
}

int report (ExitStatus status, const std::string& words)
{
    std::cerr << "veltra-receiver: " << words << '\n';
    printJson ("error", { { "status", static_cast<int> (status) }, { "message", words } });
    return status;
}

}

int main (int argc, char** argv)
{
    CLI::App app (
        "A simulated audio/video receiver: the device's side of the protocol, filter slots in memory, and stimuli\n"
        "that are played through a simulated room to a simulated microphone.",
        "veltra-receiver");
    Arguments arguments;
    readArguments (app, arguments);
    app.set_version_flag ("--version", VELTRA_VERSION);
    addCompletionOption (app);

    try
    {
        veltra::parse (app, argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit (error) == 0 ? kExitOk : kExitUsage;
    }

    try
    {
        run (arguments);
        return kExitOk;
    }
    catch (const Failure& failure)
    {
        return report (failure.status, failure.what());
    }
    catch (const std::system_error& error)
    {
        return report (kExitNetwork, error.what());
    }
    catch (const std::runtime_error& error) // a room or options that cannot be used
    {
        return report (kExitInput, error.what());
    }
    catch (const std::exception& error)
    {
        return report (kExitInternal, error.what());
    }
}
