// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <memory>
#include <optional>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/session/ChannelName.h"
#include "tools/veltra/session/FilterSlots.h"
#include "tools/veltra/session/StrictNumber.h"

namespace veltra::host {

namespace {

std::string shortText (float value)
{
    char text[32];
    std::snprintf (text, sizeof (text), "%.3g", static_cast<double> (value));
    return text;
}

/** Each of these sets a value when one is given, and then prints what the device says. A device that does not
    answer a question cannot be distinguished from one that answers 0 or off; one that refuses a value can. */

void volume (DeviceSession& session, std::optional<float> value)
{
    auto& device = session.device();

    if ((device.GetCapabilities() & veltratune_io::kCapabilityVolume) == 0)
        throw Failure (kExitReceiver, "The receiver does not let its volume be set.");

    if (value && ! device.SetVolume (*value))
        throw Failure (kExitReceiver, "The receiver did not take the volume: it refused or did not answer.");

    float now = 0.0f;
    const auto text = textFrom ([&] (char* buffer, std::uint32_t size) { now = device.GetVolume (buffer, size); });
    printResult ({ { "volume", shortNumber (now) }, { "description", text } },
                 "Volume " + shortText (now) + (text.empty() ? "" : " (" + logText (text) + ")") + "\n");
}

void attenuation (DeviceSession& session, const std::string& channel, std::optional<float> value_dB)
{
    auto& device = session.device();
    const auto number = channelNumber (device, channel);

    if (value_dB && ! device.SetChannelAttenuation (number, *value_dB))
        throw Failure (kExitReceiver, "The receiver did not take the attenuation: it refused or did not answer.");

    const auto now_dB = device.GetChannelAttenuation (number);
    const auto greatest_dB = device.GetMaxChannelAttenuation();
    printResult ({ { "channel", channel },
                   { "number", number },
                   { "attenuation_dB", shortNumber (now_dB) },
                   { "max_attenuation_dB", shortNumber (greatest_dB) } },
                 "Channel " + logText (channel) + " is attenuated by " + shortText (now_dB) + " dB of at most "
                     + shortText (greatest_dB) + " dB\n");
}

void activeSlot (DeviceSession& session, std::optional<std::uint32_t> slot)
{
    auto& device = session.device();

    if (slot)
    {
        checkSlot (device.GetFilterSlotCount(), *slot);

        if (! device.SetActiveFilterSlot (*slot))
            throw Failure (kExitReceiver, "The receiver did not select slot " + std::to_string (*slot)
                                              + ": it refused or did not answer.");
    }

    const auto active = device.GetActiveFilterSlot();
    printResult ({ { "slot", active } }, "Slot " + std::to_string (active) + " is in use\n");
}

void filtering (DeviceSession& session, std::optional<bool> state)
{
    auto& device = session.device();

    if (state)
        device.SetFiltering (*state); // reports nothing, hence the comparison

    const bool on = device.GetFiltering();

    if (state && on != *state)
        throw Failure (kExitReceiver, std::string ("The receiver did not turn filtering ") + (*state ? "on." : "off."));

    printResult ({ { "filtering", on } }, on ? "Filtering is on\n" : "Filtering is off\n");
}

std::optional<float> notNegative (const std::string& text)
{
    const auto value = strictNumber<float> (text);
    return value && *value >= 0.0f ? value : std::nullopt;
}

std::optional<std::uint32_t> slotNumber (const std::string& text) { return strictNumber<std::uint32_t> (text); }

std::optional<bool> onOrOff (const std::string& text)
{
    return text == "on" || text == "off" ? std::optional (text == "on") : std::nullopt;
}

/** The value that a text is, before anything is sent.
    @throws  Failure (kExitUsage) */
template <typename Value>
std::optional<Value> valueOf (const std::optional<std::string>& text, std::optional<Value> (*read) (const std::string&),
                              const char* expected)
{
    const auto value = text ? read (*text) : std::nullopt;

    if (text && ! value)
        throw Failure (kExitUsage, "'" + *text + "' cannot be set; expected " + expected + ".");

    return value;
}

/** A command with an optional value. The value is a text until it has been checked: the parser of the command line
    would take "nan" and "1e99" for numbers. */
template <typename Value>
struct ValueCommand
{
    const char* name;
    const char* help;
    const char* typeName;
    const char* expected;
    std::optional<Value> (*read) (const std::string&);
    void (*run) (DeviceSession&, std::optional<Value>);
};

template <typename Value>
void add (CLI::App& program, const SessionOptions& options, const ValueCommand<Value>& what)
{
    const auto text = std::make_shared<std::optional<std::string>>();
    auto* const command = program.add_subcommand (what.name, what.help);
    command->footer ("");
    command->add_option ("value", *text, "What to set; without it nothing is changed")->type_name (what.typeName);

    command->callback ([&options, text, what] {
        const auto value = valueOf (*text, what.read, what.expected);
        DeviceSession session (options);
        what.run (session, value);
    });
}

}

void addControlCommands (CLI::App& program, const SessionOptions& options)
{
    add<float> (program, options,
                { "volume", "Set or print the volume; 1 is the loudest that a measurement uses", "VALUE",
                  "a number from 0 such as 0.5", notNegative, volume });
    add<std::uint32_t> (
        program, options,
        { "slot", "Set or print the filter slot in use", "N", "the number of a slot", slotNumber, activeSlot });
    add<bool> (
        program, options,
        { "filtering", "Turn filtering on or off, or print its state", "on|off", "on or off", onOrOff, filtering });

    const auto channel = std::make_shared<std::string>();
    const auto text = std::make_shared<std::optional<std::string>>();
    auto* const command = program.add_subcommand ("attenuation", "Set or print the attenuation of a channel");
    command->footer ("");
    command->add_option ("channel", *channel, "Name or number of the channel")->required()->type_name ("CHANNEL");
    command->add_option ("dB", *text, "What to set; without it nothing is changed")->type_name ("DB");

    command->callback ([&options, channel, text] {
        const auto value_dB = valueOf (*text, notNegative, "a number of dB from 0 such as 1.5");
        DeviceSession session (options);
        attenuation (session, *channel, value_dB);
    });
}

}
