// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What a device answers from its descriptions.
*/

#include "tests/support/DeviceFixture.h"

#include <algorithm>

namespace veltra::test {

namespace {

using namespace veltratune_io;

class DeviceInformation : public DeviceFixture
{
protected:
    /** The result of a text operation and what it leaves in a buffer of a given size, which begins full of "*". */
    template <typename Operation>
    static std::string textOf (Operation operation, std::uint32_t size = 64)
    {
        std::string buffer (size + 8, '*');
        const auto result = operation (buffer.data(), size);
        EXPECT_EQ (buffer.substr (size), "********") << "written beyond the size";
        return std::to_string (result) + " " + buffer.substr (0, std::min<std::size_t> (buffer.find ('\0'), size));
    }

    static std::string channelName (Device2& opened, std::uint32_t index, std::uint32_t size = 64)
    {
        return textOf ([&] (char* b, std::uint32_t n) { return opened.GetChannelName (index, b, n); }, size);
    }

    static std::string parameters (Device2& opened, const char* technology, std::uint32_t rate, std::uint32_t size = 64)
    {
        return textOf ([&] (char* b, std::uint32_t n) { return opened.GetTopologyParameters (technology, rate, b, n); },
                       size);
    }

    static std::string serialNumber (Device2& opened)
    {
        return textOf ([&] (char* b, std::uint32_t n) { return opened.GetSerialNumber (b, n); }, 16);
    }

    static std::vector<std::uint32_t> sampleRates (Device2& opened)
    {
        std::vector<std::uint32_t> rates;

        for (std::uint32_t rate = 0; opened.GetSampleRate (static_cast<std::uint32_t> (rates.size()), &rate);)
            rates.push_back (rate);

        return rates;
    }

    veltraio::Unit::Device& deviceInfo() { return *profile.unit.mutable_devices (0); }

    const std::string untouched = std::string (64, '*');
};

}

TEST_F (DeviceInformation, ConstantsAndCounts)
{
    auto& opened = open();
    EXPECT_STREQ (opened.GetName(), "Morvane|Stereo 2|Main");
    EXPECT_EQ (opened.GetExtendedCapabilities(), 0u);
    EXPECT_EQ (opened.GetChannelCount(), 2u);
    EXPECT_EQ (opened.GetDefaultSampleRate(), 48000u);
    EXPECT_EQ (opened.GetFilterSlotCount(), 3u);
    EXPECT_EQ (opened.GetMaxChannelAttenuation(), 12.0f);
    EXPECT_EQ (opened.GetStimulusLatency(), 21.0);
    EXPECT_TRUE (opened.IsReady());
    EXPECT_EQ (serialNumber (opened), "0 MV2-000117");

    for (const auto result : { opened.ReservedCall1 (1, 2, 3), opened.ReservedCall2 (1, 2),
                               opened.ReservedCall3 (1, 2, 3, 4), opened.ReservedCall4 (1), opened.ReservedCall5(),
                               opened.ReservedCall6 (1, 2, 3), opened.StartGenericStimulus (1, 2, 3, 4, 5) })
        EXPECT_EQ (result, kResultNotSupported);

    startAfresh();
    profile.unit.clear_serialnumber();
    EXPECT_EQ (serialNumber (open()), "1 " + untouched.substr (0, 16));

    for (const auto& [capabilities, expected] : { std::pair (0u, 16u), { 2, 20 }, { 8, 17 }, { 15, 21 } })
    {
        startAfresh();
        profile.unit.set_capabilities (capabilities);
        EXPECT_EQ (open().GetCapabilities(), expected) << capabilities;
    }
}

TEST_F (DeviceInformation, ChannelNamesCarryTheirRole)
{
    deviceInfo().mutable_configurations()->Clear();
    deviceInfo().mutable_outputchannels (0)->set_name ("Küche");
    deviceInfo().mutable_outputchannels (0)->set_channelindex (300);
    deviceInfo().mutable_outputchannels (1)->set_channelindex (11);
    *deviceInfo().add_outputchannels() = deviceInfo().outputchannels (1);
    deviceInfo().mutable_outputchannels (2)->set_noeq (false);
    auto& opened = open();

    EXPECT_EQ (channelName (opened, 0), "0 Küche#IDX2c") << "two digits of 300";
    EXPECT_EQ (channelName (opened, 1), "0 SW#SUB#IDX0b#NOEQ");
    EXPECT_EQ (channelName (opened, 2), "0 SW#SUB#IDX0b");
    EXPECT_EQ (channelName (opened, 1, 5), "0 SW#S");
    EXPECT_EQ (channelName (opened, 0, 3), "0 K") << "characters are left out whole";
    EXPECT_EQ (channelName (opened, 0, 1), "0 ");
    EXPECT_EQ (channelName (opened, 3), "3 " + untouched);
    EXPECT_EQ (opened.GetChannelName (0, nullptr, 9), kResultOk);

    // The wire does not promise that a text is one.
    startAfresh();
    profile = smallProfile();
    deviceInfo().mutable_outputchannels (0)->set_name ("a\xF0\x9F");
    deviceInfo().mutable_outputchannels (1)->set_name (std::string ("S\0W", 3));
    profile.unit.set_manufacturer ("Mor\xFF");
    deviceInfo().mutable_filterslots (1)->set_name ("\xC3");
    testing::internal::CaptureStderr();
    auto& strange = open();
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "") << "with the descriptions in the log";
    EXPECT_EQ (channelName (strange, 0), "0 a??#IDX00");
    EXPECT_EQ (channelName (strange, 1), "0 S#SUB#IDX01#NOEQ") << "a NUL ends the name and not the marks";
    EXPECT_STREQ (strange.GetName(), "Mor?|Stereo 2|Main");

    FilterSet* set = nullptr;
    ASSERT_TRUE (strange.GetFilterSet (1, 0, &set));
    EXPECT_STREQ (set->GetName(), "?");
}

TEST_F (DeviceInformation, SampleRatesAndParametersAreThoseOfTheFiirStructure)
{
    *profile.topologyInfo.add_topologies() = profile.topologyInfo.topologies (1);
    profile.topologyInfo.mutable_topologies (2)->set_samplerate (96000);
    auto& opened = open();
    EXPECT_EQ (sampleRates (opened), (std::vector<std::uint32_t> { 48000, 96000 }));
    EXPECT_FALSE (opened.GetSampleRate (0, nullptr));

    EXPECT_EQ (parameters (opened, "FIIR", 48000), "0 NbrOfFIRTaps=8;NbrOfIIRSections=2");
    EXPECT_EQ (parameters (opened, "FIIR", 48000, 13), "0 NbrOfFIRTaps") << "a declared text is cut";
    EXPECT_EQ (parameters (opened, nullptr, 48000), "4 " + untouched);
    EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 48000, nullptr, 64), kResultBadArgument);
    EXPECT_EQ (parameters (opened, "FIR", 44100), "9 " + untouched);
    EXPECT_EQ (parameters (opened, "fiir", 48000), "9 " + untouched);
    EXPECT_EQ (parameters (opened, "FIIR", 44100), "11 " + untouched);

    // A device without a FIIR structure has defaults.
    startAfresh();
    profile = smallProfile();
    profile.topologyInfo.mutable_topologies (1)->set_name ("FIIRx");
    auto& other = open();
    EXPECT_EQ (sampleRates (other), (std::vector<std::uint32_t> { 44100, 48000, 96000 }));
    EXPECT_EQ (parameters (other, "FIIR", 44100), "0 NbrOfFIRTaps=918;NbrOfIIRSections=30");

    const std::string text = "NbrOfFIRTaps=1000;NbrOfIIRSections=30";

    for (const auto size : { 64u, 38u, 37u, 36u, 1u, 0u })
        EXPECT_EQ (parameters (other, "FIIR", 48000, size),
                   (size > text.size() ? "0 " : "10 ") + text.substr (0, size > 0 ? size - 1 : 0))
            << size;
}

TEST_F (DeviceInformation, AStimulusIsDescribedAtItsRates)
{
    auto& opened = open();
    const auto information = [&] (int stimulus, std::uint32_t rate) {
        return textOf ([&] (char* b, std::uint32_t n) {
            return opened.GetStimulusInformation (static_cast<EStimulus> (stimulus), rate, b, n);
        });
    };

    log.emplace();
    EXPECT_EQ (information (1, 44100), "0 Seconds=2;Level_dBFS=-20;Seed=1");
    EXPECT_EQ (opened.GetStimulusInformation (kStimulusNoise, 48000, nullptr, 0), kResultOk);
    EXPECT_EQ (information (1, 96000), "11 " + untouched);
    EXPECT_EQ (information (2, 48000), "1 " + untouched);
    EXPECT_EQ (information (7, 48000), "1 " + untouched);
    EXPECT_EQ (logged(), (Lines { "ERROR Stimulus (2) not supported ", "ERROR Stimulus (7) not supported " }));
}

TEST_F (DeviceInformation, LastErrorIsReadOnce)
{
    auto& opened = open();
    setFaults ("refuse OperationModeInfo * 'no microphone'");
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    EXPECT_TRUE (opened.SetVolume (0.5f)) << "success does not clear it";
    EXPECT_EQ (textOf ([&] (char* b, std::uint32_t n) { return opened.GetLastError (b, n); }, 8), "0 no micr");
    EXPECT_EQ (takeLastError (opened), "");
    EXPECT_EQ (opened.GetLastError (nullptr, 0), kResultOk);
}

TEST_F (DeviceInformation, AnOccupiedSlotShowsWhatIsOnTheDevice)
{
    deviceInfo().mutable_filterslots (2)->set_isoccupied (true);
    auto& opened = open();
    FilterSet* set = nullptr;
    EXPECT_FALSE (opened.GetFilterSet (0, 0, &set));
    EXPECT_FALSE (opened.GetFilterSet (3, 0, &set)) << "beyond the last slot";
    EXPECT_FALSE (opened.GetFilterSet (1, 1, &set));
    EXPECT_FALSE (opened.GetFilterSet (1, 0, nullptr));
    EXPECT_EQ (set, nullptr);
    ASSERT_TRUE (opened.GetFilterSet (2, 0, &set));
    EXPECT_STREQ (set->GetName(), "Filter") << "the device gave it no name";
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    EXPECT_STREQ (set->GetName(), "Cinema");
    EXPECT_STREQ (set->GetTechnology(), "");

    Filter* filter = nullptr;
    ASSERT_TRUE (set->GetFilter (1, &filter));
    EXPECT_STREQ (filter->GetName(), "SW");
    EXPECT_EQ (filter->GetChannel(), 1u);
    EXPECT_EQ (filter->GetGaindB(), 0.0f);
    EXPECT_FALSE (set->GetFilter (2, &filter));
}

}
