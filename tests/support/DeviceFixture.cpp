// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/DeviceFixture.h"
#include "common/SettingKeys.h"

#include <stdexcept>

namespace veltra::test {

receiver::Profile DeviceFixture::smallProfile()
{
    std::string error;
    return receiver::parseProfile (R"(
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
        })",
                                   error)
        .value();
}

DescriptionBuilder DeviceFixture::description (const std::string& project, const std::string& technology)
{
    return DescriptionBuilder (project, technology)
        .channel ("FL", 1, R"(GaindB="-1.5" Delayms="2.25" MaxFilterGaindB="3")")
        .fir (44100, { 1.0f, 0.5f, -0.25f, 0.125f, 2.0f, -1.0f, 0.75f, 0.1f, 9.0f })
        .fiir (48000, { 0.9f, 0.8f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f, 0.2f },
               { { -1.5f, 0.6f, 0.01f, 0.02f }, { 0.25f, 0.125f, 1.0f, -1.0f } }, "Delay=48")
        .channel ("SW", 2, R"(GaindB="4" MaxFilterGaindB="10")")
        .fir (44100, { 0.0f, 1.0f })
        .fiir (48000, { 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f },
               { { 0.5f, 0.25f, -0.5f, 0.75f }, { 0.0f, 0.0f, 0.1f, 0.0f } });
}

DeviceFixture::~DeviceFixture()
{
    plugin = nullptr;

    if (receiver != nullptr)
    {
        EXPECT_TRUE (receiver->waitFor ([this] { return receiver->openSessions() == 0; })) << "a connection was left";
    }
}

bool DeviceFixture::find()
{
    if (receiver == nullptr)
        receiver = std::make_unique<receiver::Receiver> (profile, options);

    if (plugin == nullptr)
    {
        juce::String text ("<PROPERTIES>");
        settings.try_emplace (keys::kDevice, "TCP:" + receiver->address());

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
    std::uint32_t count = 0;

    if (find())
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
    settings.erase (keys::kDevice);
    options.faults.clear();
    log.emplace();
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

void DeviceFixture::breakConnections()
{
    receiver->endSessions (receiver::HostSession::Ending::reset);
    receiver->waitFor ([this] { return receiver->openSessions() == 0; });
}

void DeviceFixture::useFirOnly (std::uint32_t bytes)
{
    auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);
    configuration.clear_samplerates();
    configuration.add_samplerates (44100);
    profile.topologyInfo.mutable_topologies (0)->set_information ("NbrOfFIRTaps=" + std::to_string (bytes / 2 / 4));
}

std::uint32_t DeviceFixture::setsIn (veltratune_io::Device2& opened, std::uint32_t slot)
{
    std::uint32_t count = 0;

    for (veltratune_io::FilterSet* ignored = nullptr; opened.GetFilterSet (slot, count, &ignored);)
        ++count;

    return count;
}

Lines DeviceFixture::logged() const
{
    Lines lines;

    for (const auto& line : log->all())
        lines.push_back (line.level + " " + line.text);

    return lines;
}

Lines DeviceFixture::failuresLogged() const
{
    auto lines = logged();
    std::erase_if (lines, [] (const auto& line) { return line[0] == 'T' || line[0] == 'D' || line[0] == 'I'; });
    return lines;
}

std::string DeviceFixture::oneLine (std::string text)
{
    std::replace (text.begin(), text.end(), '\n', ' ');
    return text.substr (0, text.find_last_not_of (' ') + 1);
}

std::string DeviceFixture::takeLastError (veltratune_io::Device2& device)
{
    char buffer[512];
    EXPECT_EQ (device.GetLastError (buffer, sizeof (buffer)), veltratune_io::kResultOk);
    return buffer;
}

}
