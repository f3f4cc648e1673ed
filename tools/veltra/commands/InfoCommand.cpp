// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

#include "common/Text.h"
#include "tools/output/Json.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/measure/Stimuli.h"
#include "tools/veltra/session/ChannelName.h"
#include "tools/veltra/session/FilterSlots.h"
#include "tools/veltra/session/ReceiverDescription.h"
#include "topology/Topology.h"

namespace veltra::host {

namespace {

using veltratune_io::Device2;
using Rates = std::vector<std::uint32_t>;

/** The parts of the name that the device joins by "|". */
std::string readableName (std::string name)
{
    for (auto mark = name.find ('|'); mark != name.npos; mark = name.find ('|', mark))
        name.replace (mark, 1, mark + 1 == name.size() ? "" : ", ");

    return logText (name);
}

void addOnce (Rates& rates, std::uint32_t rate)
{
    if (std::ranges::find (rates, rate) == rates.end())
        rates.push_back (rate);
}

/** The rates that the receiver itself names: for channels, topologies and stimuli. */
Rates ratesOf (const ReceiverDescription& receiver)
{
    Rates rates;

    for (const auto& configuration : receiver.device().configurations())
        for (const auto rate : configuration.samplerates())
            addOnce (rates, rate);

    for (const auto& topology : receiver.topologyInfo.topologies())
        addOnce (rates, topology.samplerate());

    return rates;
}

/** The rates that the module offers, its own where the receiver declares no topology FIIR. */
Rates ratesOf (const Device2& device)
{
    Rates rates;

    for (std::uint32_t rate = 0; device.GetSampleRate (static_cast<std::uint32_t> (rates.size()), &rate);)
        rates.push_back (rate);

    return rates;
}

void printIdentity (const Device2& device, const Rates& rates)
{
    const auto serial = textFrom ([&] (char* buffer, std::uint32_t size) { device.GetSerialNumber (buffer, size); });
    const auto capabilities = device.GetCapabilities();

    std::printf ("Receiver           %s\n", readableName (device.GetName()).c_str());
    std::printf ("Serial number      %s\n", serial.empty() ? "none" : logText (serial).c_str());
    std::printf ("Can                take filters%s%s\n",
                 (capabilities & veltratune_io::kCapabilityVolume) != 0 ? ", set its volume" : "",
                 (capabilities & veltratune_io::kCapabilityAudioDataCallback) != 0 ? ", stream its microphone" : "");
    std::printf ("Attenuation        up to %g dB a channel\n", static_cast<double> (device.GetMaxChannelAttenuation()));
    std::printf ("Stimulus latency   %g ms\n", device.GetStimulusLatency());
    std::printf ("Sample rates      ");

    for (const auto rate : rates)
        std::printf (" %u", rate);

    std::printf (rates.empty() ? " none\n" : " Hz\n");
}

void printChannels (const veltraio::Unit::Device& device)
{
    std::printf ("\nChannels\n");
    int place = 0;

    for (const auto& channel : device.outputchannels())
        std::printf (
            "  %2d  %-12s number %-3u  %-11s  %s\n", place++, logText (channel.name()).c_str(), channel.channelindex(),
            channel.type() == veltraio::Unit::Device::ChannelInfo::Type_kSubWoofer ? "subwoofer" : "loudspeaker",
            channel.noeq() ? "no EQ" : "EQ");
}

/** A topology in words, and the options that make `veltra convert` work for it. */
void printTopology (const veltraio::TopologyInfo::TopologyEntry& entry)
{
    const auto parameters = topology::parseParameters (juceText (entry.information()));
    const auto name = logText (entry.name());
    const auto value = [&] (const char* key) { return logText (parameters[key].trim().toStdString(), 32); };
    auto words = name + ", " + (parameters.containsKey ("NbrOfFIRTaps") ? value ("NbrOfFIRTaps") : "unknown") + " taps";
    auto options =
        "--topology " + name + " --rate " + std::to_string (entry.samplerate()) + " --taps " + value ("NbrOfFIRTaps");

    if (parameters.containsKey ("NbrOfIIRSections"))
    {
        words += ", " + value ("NbrOfIIRSections") + " sections";
        options += " --sections " + value ("NbrOfIIRSections");
    }

    const auto handler = topology::createTopology (juceText (entry.name()), {});

    if (handler == nullptr)
    {
        std::printf ("  %6u Hz  %s; the module does not know this topology\n", entry.samplerate(), words.c_str());
        return;
    }

    if (const auto latency_ms = handler->getLatencyMs (parameters, entry.samplerate()); latency_ms > 0.0f)
    {
        char text[64];
        const bool isDeclared = parameters.containsKey ("latency");
        std::snprintf (text, sizeof (text), ", latency %.3g ms%s", static_cast<double> (latency_ms),
                       isDeclared ? "" : " (default of the module)");
        words += text;
        options += isDeclared ? " --latency " + value ("latency") : "";
    }

    std::printf ("  %6u Hz  %s\n             convert: %s\n", entry.samplerate(), words.c_str(), options.c_str());
}

void printTopologies (const veltraio::TopologyInfo& info)
{
    std::printf ("\nFilter topologies\n");

    for (const auto& entry : info.topologies())
        printTopology (entry);

    if (info.topologies().empty())
        std::printf ("  none declared\n");
}

/** Prints a text of each sample rate, rates with the same text in one line; rates without a text are left out. */
template <typename TextAtRate>
void printByRate (const Rates& rates, const std::string& title, TextAtRate&& textAtRate)
{
    std::vector<std::pair<std::string, std::string>> lines; // text, rates

    for (const auto rate : rates)
    {
        const std::optional<std::string> text = textAtRate (rate);

        if (! text)
            continue;

        const auto known = std::ranges::find (lines, *text, &std::pair<std::string, std::string>::first);
        auto& line = known != lines.end() ? *known : lines.emplace_back (*text, "");
        line.second += (line.second.empty() ? "" : ", ") + std::to_string (rate);
    }

    for (const auto& [text, rateNames] : lines)
        std::printf ("  %s%s Hz: %s\n", title.c_str(), rateNames.c_str(), logText (text).c_str());
}

/** What an application asks the module for. The module has an answer also where the receiver declares no FIIR. */
void printDesignParameters (const Device2& device, const veltraio::TopologyInfo& info)
{
    const bool isDeclared = std::any_of (info.topologies().begin(), info.topologies().end(),
                                         [] (const auto& entry) { return entry.name() == "FIIR"; });

    if (isDeclared)
        return;

    std::printf ("\nWhat the module says to applications (its default: the receiver declares no topology FIIR)\n");
    printByRate (ratesOf (device), "FIIR, ", [&] (std::uint32_t rate) {
        return std::optional (textFrom (
            [&] (char* buffer, std::uint32_t size) { device.GetTopologyParameters ("FIIR", rate, buffer, size); }));
    });
}

void printStimuli (const Device2& device, const Rates& rates)
{
    std::printf ("\nStimuli\n");

    for (const auto& [name, stimulus] : stimulusNames())
        printByRate (rates, name + ", ", [&, kind = stimulus] (std::uint32_t rate) {
            auto result = veltratune_io::kResultOk;
            const auto text = textFrom ([&] (char* buffer, std::uint32_t size) {
                result = device.GetStimulusInformation (kind, rate, buffer, size);
            });
            return result == veltratune_io::kResultOk ? std::optional (text) : std::nullopt;
        });
}

Json channelObjects (const veltraio::Unit::Device& device)
{
    auto channels = Json::array();

    for (const auto& channel : device.outputchannels())
        channels.push_back ({ { "name", channel.name() },
                              { "number", channel.channelindex() },
                              { "subwoofer", channel.type() == veltraio::Unit::Device::ChannelInfo::Type_kSubWoofer },
                              { "takes_filter", ! channel.noeq() } });

    return channels;
}

Json topologyObjects (const veltraio::TopologyInfo& info)
{
    auto topologies = Json::array();

    for (const auto& entry : info.topologies())
        topologies.push_back ({ { "sample_rate_Hz", entry.samplerate() },
                                { "name", entry.name() },
                                { "parameters", entry.information() },
                                { "known", topology::findTopology (entry.name()) != nullptr } });

    return topologies;
}

/** What applications get at each rate. */
Json designObjects (const Device2& device)
{
    auto designs = Json::array();

    for (const auto rate : ratesOf (device))
        designs.push_back (
            { { "sample_rate_Hz", rate }, { "parameters", textFrom ([&] (char* buffer, std::uint32_t size) {
                                                device.GetTopologyParameters ("FIIR", rate, buffer, size);
                                            }) } });

    return designs;
}

Json stimulusObjects (const Device2& device, const Rates& rates)
{
    auto stimuli = Json::array();

    for (const auto& [name, stimulus] : stimulusNames())
        for (const auto rate : rates)
        {
            auto result = veltratune_io::kResultOk;
            const auto text = textFrom ([&, kind = stimulus] (char* buffer, std::uint32_t size) {
                result = device.GetStimulusInformation (kind, rate, buffer, size);
            });

            if (result == veltratune_io::kResultOk)
                stimuli.push_back ({ { "name", name }, { "sample_rate_Hz", rate }, { "parameters", text } });
        }

    return stimuli;
}

Json objectOf (const std::string& address, const ReceiverDescription& receiver, const Device2& device,
               const Rates& rates)
{
    const auto& unit = receiver.unit;
    const auto capabilities = device.GetCapabilities();
    return { { "address", address },
             { "manufacturer", unit.manufacturer() },
             { "model", unit.name() },
             { "name", receiver.device().name() },
             { "serial_number", unit.has_serialnumber() ? Json (unit.serialnumber()) : Json (nullptr) },
             { "sets_volume", (capabilities & veltratune_io::kCapabilityVolume) != 0 },
             { "streams_microphone", (capabilities & veltratune_io::kCapabilityAudioDataCallback) != 0 },
             { "max_attenuation_dB", shortNumber (device.GetMaxChannelAttenuation()) },
             { "stimulus_latency_ms", device.GetStimulusLatency() },
             { "sample_rates_Hz", rates },
             { "channels", channelObjects (receiver.device()) },
             { "slots", slotObjects (receiver.device()) },
             { "topologies", topologyObjects (receiver.topologyInfo) },
             { "design", designObjects (device) },
             { "stimuli", stimulusObjects (device, rates) } };
}

}

void addInfoCommand (CLI::App& program, const SessionOptions& options)
{
    auto* const command = program.add_subcommand ("info", "Print what a receiver is and what it can do");

    command->footer ("");
    command->callback ([&options] {
        const auto resolved = withAddress (options);
        const auto receiver = describeReceiver (resolved);
        DeviceSession session (resolved);
        const auto rates = ratesOf (receiver);

        if (outputForm().json)
        {
            printJson ("result", objectOf (resolved.device, receiver, session.device(), rates));
            return;
        }

        printIdentity (session.device(), rates);
        printChannels (receiver.device());
        std::printf ("\nFilter slots\n");
        std::printf ("%s", slotLines (receiver.device()).c_str());
        printTopologies (receiver.topologyInfo);
        printDesignParameters (session.device(), receiver.topologyInfo);
        printStimuli (session.device(), rates);
    });
}

}
