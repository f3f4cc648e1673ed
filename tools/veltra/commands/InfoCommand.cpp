// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/measure/Stimuli.h"
#include "tools/veltra/session/ChannelName.h"
#include "tools/veltra/session/FilterSlots.h"

namespace veltra::host {

namespace {

using veltratune_io::Device2;

/** The parts of the name that the device joins by "|". */
std::string readableName (std::string name)
{
    for (auto mark = name.find ('|'); mark != name.npos; mark = name.find ('|', mark))
        name.replace (mark, 1, mark + 1 == name.size() ? "" : ", ");

    return name;
}

std::vector<std::uint32_t> sampleRates (const Device2& device)
{
    std::vector<std::uint32_t> rates;

    for (std::uint32_t rate = 0; device.GetSampleRate (static_cast<std::uint32_t> (rates.size()), &rate);)
        rates.push_back (rate);

    return rates;
}

void printIdentity (const Device2& device)
{
    const auto serial = textFrom ([&] (char* buffer, std::uint32_t size) { device.GetSerialNumber (buffer, size); });
    const auto capabilities = device.GetCapabilities();

    std::printf ("Receiver           %s\n", readableName (device.GetName()).c_str());
    std::printf ("Serial number      %s\n", serial.empty() ? "none" : serial.c_str());
    std::printf ("Can                take filters%s%s\n",
                 (capabilities & veltratune_io::kCapabilityVolume) != 0 ? ", set its volume" : "",
                 (capabilities & veltratune_io::kCapabilityAudioDataCallback) != 0 ? ", stream its microphone" : "");
    std::printf ("Attenuation        up to %g dB a channel\n", static_cast<double> (device.GetMaxChannelAttenuation()));
    std::printf ("Stimulus latency   %g ms\n", device.GetStimulusLatency());
    std::printf ("Sample rates      ");

    for (const auto rate : sampleRates (device))
        std::printf (" %u", rate);

    std::printf (" Hz, default %u Hz\n", device.GetDefaultSampleRate());
}

void printChannels (const Device2& device)
{
    std::printf ("\nChannels\n");
    std::uint32_t place = 0;

    for (const auto& channel : channelsOf (device))
        std::printf ("  %2u  %-12s number %-3u  %-11s  %s\n", place++, channel.name.c_str(), channel.number,
                     channel.subwoofer ? "subwoofer" : "loudspeaker", channel.takesFilter ? "EQ" : "no EQ");
}

/** Prints a text of each sample rate, rates with the same text in one line; rates without a text are left out. */
template <typename TextAtRate>
void printByRate (const Device2& device, const std::string& title, TextAtRate&& textAtRate)
{
    std::vector<std::pair<std::string, std::string>> lines; // text, rates

    for (const auto rate : sampleRates (device))
    {
        const std::optional<std::string> text = textAtRate (rate);

        if (! text)
            continue;

        const auto known = std::ranges::find (lines, *text, &std::pair<std::string, std::string>::first);
        auto& line = known != lines.end() ? *known : lines.emplace_back (*text, "");
        line.second += (line.second.empty() ? "" : ", ") + std::to_string (rate);
    }

    for (const auto& [text, rates] : lines)
        std::printf ("  %s%s Hz: %s\n", title.c_str(), rates.c_str(), text.c_str());
}

void printTopologies (const Device2& device)
{
    std::printf ("\nParameters of topology FIIR\n");

    printByRate (device, "", [&] (std::uint32_t rate) {
        return std::optional (textFrom (
            [&] (char* buffer, std::uint32_t size) { device.GetTopologyParameters ("FIIR", rate, buffer, size); }));
    });
}

void printStimuli (const Device2& device)
{
    std::printf ("\nStimuli\n");

    for (const auto& [name, stimulus] : stimulusNames())
        printByRate (device, name + ", ", [&, kind = stimulus] (std::uint32_t rate) {
            auto result = veltratune_io::kResultOk;
            const auto text = textFrom ([&] (char* buffer, std::uint32_t size) {
                result = device.GetStimulusInformation (kind, rate, buffer, size);
            });
            return result == veltratune_io::kResultOk ? std::optional (text) : std::nullopt;
        });
}

}

void addInfoCommand (CLI::App& program, const SessionOptions& options)
{
    auto* const command = program.add_subcommand ("info", "Say what a receiver is and what it can do");

    command->footer ("");
    command->callback ([&options] {
        DeviceSession session (options);
        printIdentity (session.device());
        printChannels (session.device());
        std::printf ("\nFilter slots\n");
        printSlots (session.device());
        printTopologies (session.device());
        printStimuli (session.device());
    });
}

}
