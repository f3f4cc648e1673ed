#include "tests/plugin/Operations.h"

#include <sstream>

namespace veltra::test {

namespace {

using namespace veltratune_io;

template <typename Value>
std::string text (Value value)
{
    std::ostringstream out;
    out << std::boolalpha << value;
    return out.str();
}

std::string getVolume (Device2& device)
{
    char buffer[16] = "untouched";
    const auto volume = device.GetVolume (buffer, sizeof (buffer));
    return text (volume) + " " + buffer;
}

}

const std::vector<Operation>& operations()
{
    using enum Operation::Kind;

    static const std::uint32_t channels[] = { 1, 0 };
    static const std::vector<Operation> all {
        { "EnterMeasurementMode", "OperationModeInfo", "OperationModeInfo", "mode: OperationMode_kMeasurement sampleRate: 48000",
          wordyCommand, [] (Device2& d) { return text (d.EnterMeasurementMode (48000, 1, 2, nullptr)); }, "0", "1", "" },
        { "StartStimulus", "StartStimulus", "StartStimulus",
          "deviceIndex: 0 stimulusType: Stimulus_kNoise sampleRate: 48000 channels: 1 channels: 0",
          wordyCommand, [] (Device2& d) { return text (d.StartStimulus (kStimulusNoise, channels, 2, 0)); }, "0", "1", "" },
        { "IsStimulusPlaying", "GetStimulusState", "Request", "requestType: RequestType_kGetStimulusState deviceIndex: 0",
          query, [] (Device2& d) { return text (d.IsStimulusPlaying()); }, "true", "false", "" },
        { "StopStimulus", "StopStimulus", "StopStimulus", "deviceIndex: 0",
          command, [] (Device2& d) { d.StopStimulus(); return std::string(); }, "", "", "" },
        { "LeaveMeasurementMode", "OperationModeInfo", "OperationModeInfo", "mode: OperationMode_kAudition",
          wordyCommand, [] (Device2& d) { return text (d.LeaveMeasurementMode()); }, "true", "false", "" },
        { "SetActiveFilterSlot", "ActiveFilterSlot", "ActiveFilterSlot", "deviceIndex: 0 slotIndex: 2",
          command, [] (Device2& d) { return text (d.SetActiveFilterSlot (2)); }, "true", "false",
          "ERROR Error settings active slot" },
        { "GetActiveFilterSlot", "GetActiveFilterSlot", "Request",
          "requestType: RequestType_kGetActiveFilterSlot deviceIndex: 0",
          query, [] (Device2& d) { return text (d.GetActiveFilterSlot()); }, "2", "0", "" },
        { "SetFiltering", "FilteringState", "FilteringState", "deviceIndex: 0 isFiltering: true",
          command, [] (Device2& d) { d.SetFiltering (true); return std::string(); }, "", "", "" },
        { "GetFiltering", "GetFilteringState", "Request", "requestType: RequestType_kGetFilteringState deviceIndex: 0",
          query, [] (Device2& d) { return text (d.GetFiltering()); }, "true", "false", "" },
        { "SetVolume", "Volume", "Volume", "deviceIndex: 0 volume: 0.35",
          command, [] (Device2& d) { return text (d.SetVolume (0.5f)); }, "true", "false", "" },
        { "GetVolume", "GetVolume", "Request", "requestType: RequestType_kGetVolume deviceIndex: 0",
          query, getVolume, "0.5 35 %", "0 untouched", "" },
        { "SetChannelAttenuation", "ChannelAttenuation", "ChannelAttenuation", "deviceIndex: 0 channel: 1 attenuation: 0.25",
          command, [] (Device2& d) { return text (d.SetChannelAttenuation (1, 3.0f)); }, "true", "false", "" },
        { "GetChannelAttenuation", "GetChannelAttenuation", "Request",
          "requestType: RequestType_kGetChannelAttenuation deviceIndex: 0 channel: 1",
          query, [] (Device2& d) { return text (d.GetChannelAttenuation (1)); }, "3", "0", "" },
    };

    return all;
}

}
