// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <memory>
#include <optional>

#include "tools/ExitStatus.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/session/ChannelName.h"
#include "tools/veltra/session/FilterSlots.h"

namespace veltra::host {

namespace {

/** Each of these sets a value when one is given, and then prints what the device says. A device that does not
    answer a question cannot be told from one that answers 0 or off; one that refuses a value can. */

void volume (DeviceSession& session, std::optional<float> value)
{
    auto& device = session.device();

    if ((device.GetCapabilities() & veltratune_io::kCapabilityVolume) == 0)
        throw Failure (kExitReceiver, "The receiver does not let its volume be set.");

    if (value && ! device.SetVolume (*value))
        throw Failure (kExitReceiver, "The receiver did not take the volume: it refused or did not answer.");

    float now = 0.0f;
    const auto text = textFrom ([&] (char* buffer, std::uint32_t size) { now = device.GetVolume (buffer, size); });
    std::printf ("Volume %.3g%s\n", static_cast<double> (now), text.empty() ? "" : (" (" + text + ")").c_str());
}

void attenuation (DeviceSession& session, const std::string& channel, std::optional<float> value_dB)
{
    auto& device = session.device();
    const auto number = channelNumber (device, channel);

    if (value_dB && ! device.SetChannelAttenuation (number, *value_dB))
        throw Failure (kExitReceiver, "The receiver did not take the attenuation: it refused or did not answer.");

    std::printf ("Channel %s is attenuated by %.3g dB of at most %.3g dB\n", channel.c_str(),
                 static_cast<double> (device.GetChannelAttenuation (number)),
                 static_cast<double> (device.GetMaxChannelAttenuation()));
}

void activeSlot (DeviceSession& session, std::optional<std::uint32_t> slot)
{
    auto& device = session.device();

    if (slot)
    {
        checkSlot (device, *slot);

        if (! device.SetActiveFilterSlot (*slot))
            throw Failure (kExitReceiver, "The receiver did not select slot " + std::to_string (*slot)
                                              + ": it refused or did not answer.");
    }

    std::printf ("Slot %u is in use\n", device.GetActiveFilterSlot());
}

void filtering (DeviceSession& session, std::optional<std::string> state)
{
    auto& device = session.device();

    if (state)
        device.SetFiltering (*state == "on"); // reports nothing, hence the comparison

    const bool on = device.GetFiltering();

    if (state && on != (*state == "on"))
        throw Failure (kExitReceiver, "The receiver did not turn filtering " + *state + ".");

    std::printf ("Filtering is %s\n", on ? "on" : "off");
}

/** Adds a command with an optional value. */
template <typename Value>
CLI::Option* addValueCommand (CLI::App& program, const SessionOptions& options, const char* name, const char* help,
                              const char* valueName, void (*run) (DeviceSession&, std::optional<Value>))
{
    const auto value = std::make_shared<std::optional<Value>>();
    auto* const command = program.add_subcommand (name, help);
    command->footer ("");

    command->callback ([&options, value, run] {
        DeviceSession session (options);
        run (session, *value);
    });

    return command->add_option (valueName, *value, "What to set; without it nothing is changed");
}

}

void addControlCommands (CLI::App& program, const SessionOptions& options)
{
    addValueCommand<float> (program, options, "volume",
                            "Set or tell the volume; 1 is the loudest that a measurement uses", "value", volume)
        ->check (CLI::NonNegativeNumber)
        ->type_name ("VALUE");
    addValueCommand<std::uint32_t> (program, options, "slot", "Set or tell the filter slot in use", "slot", activeSlot)
        ->type_name ("N");
    addValueCommand<std::string> (program, options, "filtering", "Turn filtering on or off, or tell which", "state",
                                  filtering)
        ->check (CLI::IsMember ({ "on", "off" }).description (""))
        ->type_name ("on|off");

    const auto channel = std::make_shared<std::string>();
    const auto value = std::make_shared<std::optional<float>>();
    auto* const command = program.add_subcommand ("attenuation", "Set or tell the attenuation of a channel");
    command->footer ("");
    command->add_option ("channel", *channel, "Name or number of the channel")->required()->type_name ("CHANNEL");
    command->add_option ("dB", *value, "What to set; without it nothing is changed")->type_name ("DB");

    command->callback ([&options, channel, value] {
        DeviceSession session (options);
        attenuation (session, *channel, *value);
    });
}

}
