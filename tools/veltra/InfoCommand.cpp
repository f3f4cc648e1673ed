#include <cstdio>

#include "tools/veltra/ChannelName.h"
#include "tools/veltra/Commands.h"
#include "tools/veltra/FilterSlots.h"
#include "tools/veltra/Stimuli.h"

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

void printTopologies (const Device2& device)
{
    std::printf ("\nParameters of topology FIIR\n");

    for (const auto rate : sampleRates (device))
    {
        const auto parameters = textFrom ([&] (char* buffer, std::uint32_t size)
        {
            device.GetTopologyParameters ("FIIR", rate, buffer, size);
        });

        std::printf ("  %6u Hz  %s\n", rate, parameters.c_str());
    }
}

void printStimuli (const Device2& device)
{
    std::printf ("\nStimuli\n");

    for (const auto& [name, stimulus] : stimulusNames())
        for (const auto rate : sampleRates (device))
        {
            auto result = veltratune_io::kResultOk;
            const auto information = textFrom ([&, kind = stimulus] (char* buffer, std::uint32_t size)
            {
                result = device.GetStimulusInformation (kind, rate, buffer, size);
            });

            if (result == veltratune_io::kResultOk)
                std::printf ("  %-6s %6u Hz  %s\n", name.c_str(), rate, information.c_str());
        }
}

}

void addInfoCommand (CLI::App& program, const SessionOptions& options)
{
    auto* const command = program.add_subcommand ("info", "Say what a receiver is and what it can do");

    command->footer ("");
    command->callback ([&options]
    {
        Session session (options);
        printIdentity (session.device());
        printChannels (session.device());
        std::printf ("\nFilter slots\n");
        printSlots (session.device());
        printTopologies (session.device());
        printStimuli (session.device());
    });
}

}
