// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A receiver whose description makes work: what it can take, and how the host gets out. DownloadFailureTest.cpp has the
    words for more rates and channels than that.
*/

#include "tests/support/DeviceFixture.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class HostileUnit : public DeviceFixture
{
};

}

TEST_F (HostileUnit, AHostCancelsAConversionBetweenChannels)
{
    constexpr int channels = 24, rates = 16;
    auto& unitDevice = *profile.unit.mutable_devices (0);
    auto& configuration = *unitDevice.mutable_configurations (0);
    configuration.clear_channels();
    configuration.clear_samplerates();
    profile.topologyInfo.clear_topologies();
    DescriptionBuilder description;

    for (int channel = 0; channel < channels; ++channel)
    {
        configuration.add_channels (static_cast<std::uint32_t> (channel));
        description.channel ("C" + std::to_string (channel), channel + 1).fir (96000, { 1.0f, 0.5f });
    }

    const auto addRate = [&] (std::uint32_t rate) {
        configuration.add_samplerates (rate);
        auto& topology = *profile.topologyInfo.add_topologies();
        topology.set_samplerate (rate);
        topology.set_name ("FIR");
        topology.set_information ("NbrOfFIRTaps=16384");
    };

    for (std::uint32_t rate = 95000; rate < 95000 + rates; ++rate)
        addRate (rate);

    auto& opened = open();
    progress.onProgress = [] { return false; };
    EXPECT_EQ (kResultOk, download (opened, description.text()));
    EXPECT_EQ (std::vector<float> { 0.0f }, progress.fractions);
    EXPECT_EQ ((Lines { "#Preprocessing filters.../25" }), progress.texts) << "the transfer has not begun";
    EXPECT_EQ (0u, receiver->messageCount ("LoadFilter"));
    EXPECT_EQ (1u, setsIn (opened, 2)) << "as after any cancelled download";
    EXPECT_TRUE (log->contains ("INFO", "Download cancelled before the transfer"));

    // With one rate more nothing is converted at all.
    startAfresh();
    addRate (48000);
    progress.fractions.clear();
    EXPECT_EQ (kResultFailed, download (open(), description.text()));
    EXPECT_EQ ("Too many sample rates", takeLastError (device (0)));
    EXPECT_TRUE (progress.fractions.empty());
}

}
