#include "tests/plugin/DeviceFixture.h"

#include <stdexcept>

namespace veltra::test {

receiver::Profile smallProfile()
{
    static constexpr const char* text = R"(
        protocolInfo { versionInfo: 8 messageLimit: 1400 }
        unit {
          manufacturer: "Morvane" name: "Stereo 2" serialNumber: "MV2-000117" capabilities: 10
          maxChannelAttenuation_dB: 12
          devices {
            name: "Main"
            configurations { sampleRates: [44100, 48000] channels: [0, 1] }
            filterSlots { isOccupied: false }
            filterSlots { name: "Cinema" isOccupied: true }
            filterSlots { isOccupied: false }
            outputChannels { name: "FL" type: Type_kLarge channelIndex: 0 }
            outputChannels { name: "SW" type: Type_kSubWoofer channelIndex: 1 noEq: true }
          }
        }
        topologyInfo {
          topologies { name: "FIR" sampleRate: 44100 information: "NbrOfFIRTaps=8" }
          topologies { name: "FIIR" sampleRate: 48000 information: "NbrOfFIRTaps=8;NbrOfIIRSections=2" }
        }
        stimulusInfo {
          stimulusInformation { stimulus: Stimulus_kNoise sampleRate: 48000
            information: "Seconds=1;Level_dBFS=-20;Seed=1" }
          stimulusInformation { stimulus: Stimulus_kNoise sampleRate: 44100
            information: "Seconds=2;Level_dBFS=-20;Seed=1" }
          stimulusLatencyMilliseconds: 21
        })";

    std::string error;
    auto profile = receiver::parseProfile (text, error);

    if (! profile)
        throw std::runtime_error (error);

    return *profile;
}

DeviceFixture::DeviceFixture() = default;

DeviceFixture::~DeviceFixture()
{
    plugin = nullptr;

    if (receiver != nullptr)
    {
        EXPECT_TRUE (receiver->waitFor ([this] { return receiver->openSessions() == 0; })) << "a connection was left open";
    }
}

bool DeviceFixture::find()
{
    if (receiver == nullptr)
        receiver = std::make_unique<receiver::Receiver> (profile, options);

    if (plugin == nullptr)
    {
        juce::String text ("<PROPERTIES>");
        settings.try_emplace ("Device", "TCP:" + receiver->address());

        for (const auto& [key, value] : settings)
            text << "<VALUE name=\"" << key << "\" val=\"" << value << "\"/>";

        const juce::TemporaryFile file (".settings");
        file.getFile().replaceWithText (text + "</PROPERTIES>");
        plugin = std::make_unique<plugin::PluginImpl> (file.getFile());
    }

    return plugin->FindDevices();
}

veltratune_io::Device2& DeviceFixture::open()
{
    if (! find())
        throw std::runtime_error ("no device");

    std::uint32_t count = 0;

    for (veltratune_io::Device* ignored = nullptr; plugin->GetDevice (count, &ignored);)
        ++count;

    return device (count - 1);
}

veltratune_io::Device2& DeviceFixture::device (std::uint32_t index)
{
    veltratune_io::Device* found = nullptr;

    if (! plugin->GetDevice (index, &found))
        throw std::runtime_error ("no such device");

    return static_cast<veltratune_io::Device2&> (*found);
}

void DeviceFixture::startAfresh()
{
    plugin = nullptr;
    receiver = nullptr;
    settings.erase ("Device");
}

void DeviceFixture::setFaults (const std::string& script)
{
    std::string error;
    auto faults = receiver::parseFaults (script, error);

    if (! faults)
        throw std::runtime_error (error);

    if (receiver != nullptr)
        receiver->setFaults (*faults);
    else
        options.faults = *faults;
}

std::string DeviceFixture::oneLine (std::string text)
{
    for (auto& c : text)
        if (c == '\n')
            c = ' ';

    while (text.ends_with (' '))
        text.pop_back();

    return text;
}

std::string DeviceFixture::takeLastError (veltratune_io::Device2& device)
{
    char buffer[512];
    EXPECT_EQ (device.GetLastError (buffer, sizeof (buffer)), veltratune_io::kResultOk);
    return buffer;
}

void DeviceFixture::breakConnections()
{
    receiver->endSessions (receiver::Session::Ending::reset);
    receiver->waitFor ([this] { return receiver->openSessions() == 0; });
}

}
