// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/Operations.h"

#include <sstream>

#include "protocol/TextForm.h"
#include "protocol/veltraio.pb.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;
using enum Operation::Kind;
using Run = std::function<std::string (Device2&)>;

template <typename... Values>
std::string text (Values... values)
{
    std::ostringstream out;
    (out << std::boolalpha << ... << values);
    return out.str();
}

template <typename Message>
std::string textOfBody (const std::string& body)
{
    Message message;
    message.ParseFromString (body);
    return veltraio::toText (message);
}

template <typename Message>
Operation command (std::string name, Operation::Kind kind, std::string message, Run run, std::string success,
                   std::string failure)
{
    const auto type = Message().GetTypeName().substr (std::size ("veltraio.") - 1);
    return { name, kind, type, type, message, run, success, failure, textOfBody<Message> };
}

Operation ask (std::string name, std::string what, Run run, std::string success, std::string failure,
               std::string channel = {})
{
    return { name,
             query,
             "Request",
             "Get" + what,
             "requestType: RequestType_kGet" + what + "\ndeviceIndex: 0\n" + channel,
             run,
             success,
             failure,
             textOfBody<veltraio::Request> };
}

std::string getVolume (Device2& device)
{
    char buffer[16] = "untouched";
    const auto volume = device.GetVolume (buffer, sizeof (buffer));
    return text (volume, " ", buffer);
}

const std::uint32_t channels[] = { 1, 0 };

}

const std::vector<Operation>& operations()
{
    static const std::vector<Operation> all {
        command<veltraio::OperationModeInfo> (
            "EnterMeasurementMode", wordyCommand, "mode: OperationMode_kMeasurement\nsampleRate: 48000\n",
            [] (Device2& d) { return text (d.EnterMeasurementMode (48000, 1, 2, nullptr)); }, "0", "1"),
        command<veltraio::StartStimulus> (
            "StartStimulus", wordyCommand,
            "deviceIndex: 0\nstimulusType: Stimulus_kNoise\nsampleRate: 48000\nchannels: 1\nchannels: 0\n",
            [] (Device2& d) { return text (d.StartStimulus (kStimulusNoise, channels, 2, 0)); }, "0", "1"),
        ask (
            "IsStimulusPlaying", "StimulusState", [] (Device2& d) { return text (d.IsStimulusPlaying()); }, "true",
            "false"),
        command<veltraio::StopStimulus> (
            "StopStimulus", quietCommand, "deviceIndex: 0\n",
            [] (Device2& d) {
                d.StopStimulus();
                return text();
            },
            "", ""),
        command<veltraio::OperationModeInfo> (
            "LeaveMeasurementMode", wordyCommand, "mode: OperationMode_kAudition\n",
            [] (Device2& d) { return text (d.LeaveMeasurementMode()); }, "true", "false"),
        command<veltraio::ActiveFilterSlot> (
            "SetActiveFilterSlot", quietCommand, "deviceIndex: 0\nslotIndex: 2\n",
            [] (Device2& d) { return text (d.SetActiveFilterSlot (2)); }, "true", "false"),
        ask (
            "GetActiveFilterSlot", "ActiveFilterSlot", [] (Device2& d) { return text (d.GetActiveFilterSlot()); }, "2",
            "0"),
        command<veltraio::FilteringState> (
            "SetFiltering", quietCommand, "deviceIndex: 0\nisFiltering: true\n",
            [] (Device2& d) {
                d.SetFiltering (true);
                return text();
            },
            "", ""),
        ask (
            "GetFiltering", "FilteringState", [] (Device2& d) { return text (d.GetFiltering()); }, "true", "false"),
        command<veltraio::Volume> (
            "SetVolume", quietCommand, "deviceIndex: 0\nvolume: 0.35\n",
            [] (Device2& d) { return text (d.SetVolume (0.5f)); }, "true", "false"),
        ask ("GetVolume", "Volume", getVolume, "0.5 35 %", "0 untouched"),
        command<veltraio::ChannelAttenuation> (
            "SetChannelAttenuation", quietCommand, "deviceIndex: 0\nchannel: 1\nattenuation: 0.25\n",
            [] (Device2& d) { return text (d.SetChannelAttenuation (1, 3.0f)); }, "true", "false"),
        ask (
            "GetChannelAttenuation", "ChannelAttenuation",
            [] (Device2& d) { return text (d.GetChannelAttenuation (1)); }, "3", "0", "channel: 1\n"),
    };

    return all;
}

}
