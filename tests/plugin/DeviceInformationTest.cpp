/** @file
    What a device answers from its descriptions.
*/

#include "tests/plugin/DeviceFixture.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class DeviceInformation : public DeviceFixture
{
protected:
    /** What a text operation leaves in a buffer of a given size; the buffer begins full of "*". */
    template <typename Operation>
    static std::string textOf (Operation operation, std::uint32_t size = 64)
    {
        std::string buffer (size + 8, '*');
        operation (buffer.data(), size);
        EXPECT_EQ (buffer.substr (size), "********") << "written beyond the size";
        return buffer.substr (0, std::min<std::size_t> (buffer.find ('\0'), size));
    }

    std::string channelName (Device2& target, std::uint32_t index, std::uint32_t size = 64)
    {
        return textOf ([&] (char* buffer, std::uint32_t bytes) { target.GetChannelName (index, buffer, bytes); }, size);
    }

    veltraio::Unit::Device::ChannelInfo& channel (int index)
    {
        return *profile.unit.mutable_devices (0)->mutable_outputchannels (index);
    }
};

}

TEST_F (DeviceInformation, CapabilitiesFollowTheUnit)
{
    const std::pair<std::uint32_t, std::uint32_t> rows[] = { { 0, 16 }, { 1, 16 }, { 2, 20 }, { 4, 16 }, { 8, 17 }, { 15, 21 } };

    for (const auto& [unit, expected] : rows)
    {
        startAfresh();
        profile.unit.set_capabilities (unit);
        EXPECT_EQ (open().GetCapabilities(), expected) << unit;
    }
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

    EXPECT_EQ (opened.ReservedCall1 (1, 2, 3), kResultNotSupported);
    EXPECT_EQ (opened.ReservedCall2 (1, 2), kResultNotSupported);
    EXPECT_EQ (opened.ReservedCall3 (1, 2, 3, 4), kResultNotSupported);
    EXPECT_EQ (opened.ReservedCall4 (1), kResultNotSupported);
    EXPECT_EQ (opened.ReservedCall5(), kResultNotSupported);
    EXPECT_EQ (opened.ReservedCall6 (1, 2, 3), kResultNotSupported);
    EXPECT_EQ (opened.StartGenericStimulus (1, 2, 3, 4, 5), kResultNotSupported);
}

TEST_F (DeviceInformation, ChannelNamesCarryTheirRole)
{
    channel (0).set_name ("Küche");
    channel (0).set_channelindex (300);
    channel (1).set_channelindex (11);
    profile.unit.mutable_devices (0)->mutable_configurations()->Clear();
    auto& opened = open();

    EXPECT_EQ (channelName (opened, 0), "Küche#IDX2c");
    EXPECT_EQ (channelName (opened, 1), "SW#SUB#IDX0b#NOEQ");
    EXPECT_EQ (channelName (opened, 1, 5), "SW#S");
    EXPECT_EQ (channelName (opened, 0, 3), "K") << "characters are left out whole";
    EXPECT_EQ (channelName (opened, 0, 1), "");
    EXPECT_EQ (channelName (opened, 2), std::string (64, '*'));
    EXPECT_EQ (opened.GetChannelName (0, nullptr, 9), kResultOk);
    EXPECT_EQ (opened.GetChannelName (2, nullptr, 0), kResultBadIndex);
}

TEST_F (DeviceInformation, NoEqOfFalseLeavesNoMark)
{
    channel (1).set_noeq (false);
    EXPECT_EQ (channelName (open(), 1), "SW#SUB#IDX01");
}

/** The wire does not promise that a text is one. */
TEST_F (DeviceInformation, BytesThatAreNoTextComeOutAsOne)
{
    channel (0).set_name ("a\xF0\x9F");
    profile.unit.set_manufacturer ("Mor\xFF");
    profile.unit.mutable_devices (0)->mutable_filterslots (1)->set_name ("\xC3");
    testing::internal::CaptureStderr();
    auto& opened = open();
    EXPECT_EQ (testing::internal::GetCapturedStderr(), "") << "with the descriptions in the log";
    EXPECT_EQ (channelName (opened, 0), "a??#IDX00");
    EXPECT_STREQ (opened.GetName(), "Mor?|Stereo 2|Main");

    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    EXPECT_STREQ (set->GetName(), "?");
}

TEST_F (DeviceInformation, SampleRatesAreThoseOfTheFiirStructure)
{
    profile.topologyInfo.add_topologies()->CopyFrom (profile.topologyInfo.topologies (1));
    profile.topologyInfo.mutable_topologies (2)->set_samplerate (96000);
    auto& opened = open();

    std::uint32_t rate = 0;
    EXPECT_TRUE (opened.GetSampleRate (0, &rate));
    EXPECT_EQ (rate, 48000u);
    EXPECT_TRUE (opened.GetSampleRate (1, &rate));
    EXPECT_EQ (rate, 96000u);
    EXPECT_FALSE (opened.GetSampleRate (2, &rate));
    EXPECT_EQ (rate, 96000u);
    EXPECT_FALSE (opened.GetSampleRate (0, nullptr));
}

TEST_F (DeviceInformation, ADeviceWithoutFiirStructureHasThreeDefaultRates)
{
    profile.topologyInfo.mutable_topologies (1)->set_name ("FIIRx");
    auto& opened = open();
    std::uint32_t rates[3] = {};

    for (std::uint32_t i = 0; i < 3; ++i)
        EXPECT_TRUE (opened.GetSampleRate (i, &rates[i]));

    EXPECT_EQ (rates[0], 44100u);
    EXPECT_EQ (rates[1], 48000u);
    EXPECT_EQ (rates[2], 96000u);
    EXPECT_FALSE (opened.GetSampleRate (3, &rates[0]));

    const std::string text = "NbrOfFIRTaps=1000;NbrOfIIRSections=30";
    const auto read = [&] (std::uint32_t size)
    {
        return textOf ([&] (char* buffer, std::uint32_t bytes)
        {
            EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 48000, buffer, bytes),
                       bytes > text.size() ? kResultOk : kResultBufferTooSmall) << bytes;
        }, size);
    };

    for (const auto size : { 64u, 38u, 37u, 36u, 1u, 0u })
        EXPECT_EQ (read (size), text.substr (0, size > 0 ? size - 1 : 0));

    char buffer[64];
    EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 44100, buffer, sizeof (buffer)), kResultOk);
    EXPECT_STREQ (buffer, "NbrOfFIRTaps=918;NbrOfIIRSections=30");
}

TEST_F (DeviceInformation, TopologyParametersAreTheDevicesOwn)
{
    auto& opened = open();
    char buffer[64] = "";
    EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 48000, buffer, sizeof (buffer)), kResultOk);
    EXPECT_STREQ (buffer, "NbrOfFIRTaps=8;NbrOfIIRSections=2");
    EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 48000, buffer, 13), kResultOk) << "a declared text is cut";
    EXPECT_STREQ (buffer, "NbrOfFIRTaps");

    EXPECT_EQ (opened.GetTopologyParameters (nullptr, 48000, buffer, sizeof (buffer)), kResultBadArgument);
    EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 48000, nullptr, 64), kResultBadArgument);
    EXPECT_EQ (opened.GetTopologyParameters ("FIR", 48000, buffer, sizeof (buffer)), kResultBadTechnology);
    EXPECT_EQ (opened.GetTopologyParameters ("fiir", 48000, buffer, sizeof (buffer)), kResultBadTechnology);
    EXPECT_EQ (opened.GetTopologyParameters ("FIIR", 44100, buffer, sizeof (buffer)), kResultBadSampleRate);
}

TEST_F (DeviceInformation, AStimulusIsDescribedAtItsRates)
{
    auto& opened = open();
    char buffer[64] = "";
    EXPECT_EQ (opened.GetStimulusInformation (kStimulusNoise, 44100, buffer, sizeof (buffer)), kResultOk);
    EXPECT_STREQ (buffer, "Seconds=2;Level_dBFS=-20;Seed=1");
    EXPECT_EQ (opened.GetStimulusInformation (kStimulusNoise, 48000, nullptr, 0), kResultOk);
    EXPECT_EQ (opened.GetStimulusInformation (kStimulusNoise, 96000, buffer, sizeof (buffer)), kResultBadSampleRate);

    log.clear();
    EXPECT_EQ (opened.GetStimulusInformation (kStimulusSubwooferLevelCal, 48000, buffer, sizeof (buffer)), kResultFailed);
    EXPECT_EQ (opened.GetStimulusInformation (static_cast<EStimulus> (7), 48000, buffer, sizeof (buffer)), kResultFailed);
    EXPECT_EQ (log.lines(), (std::vector<std::string> { "ERROR Stimulus (2) not supported ", "ERROR Stimulus (7) not supported " }));
    EXPECT_STREQ (buffer, "Seconds=2;Level_dBFS=-20;Seed=1");
}

TEST_F (DeviceInformation, TheSerialNumberIsThereOrNot)
{
    auto& opened = open();
    char buffer[16] = "";
    EXPECT_EQ (opened.GetSerialNumber (buffer, sizeof (buffer)), kResultOk);
    EXPECT_STREQ (buffer, "MV2-000117");

    startAfresh();
    profile.unit.clear_serialnumber();
    EXPECT_EQ (open().GetSerialNumber (buffer, sizeof (buffer)), kResultFailed);
    EXPECT_STREQ (buffer, "MV2-000117");
}

TEST_F (DeviceInformation, LastErrorIsReadOnce)
{
    auto& opened = open();
    setFaults ("refuse OperationModeInfo * 'no microphone'");
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    EXPECT_TRUE (opened.SetVolume (0.5f)) << "success does not clear it";

    char buffer[8] = "";
    EXPECT_EQ (opened.GetLastError (buffer, sizeof (buffer)), kResultOk);
    EXPECT_STREQ (buffer, "no micr");
    EXPECT_EQ (takeLastError (opened), "");
    EXPECT_EQ (opened.GetLastError (nullptr, 0), kResultOk);
}

TEST_F (DeviceInformation, AnOccupiedSlotShowsWhatIsOnTheDevice)
{
    auto& opened = open();
    FilterSet* set = nullptr;
    EXPECT_FALSE (opened.GetFilterSet (0, 0, &set));
    EXPECT_FALSE (opened.GetFilterSet (3, 0, &set)) << "beyond the last slot";
    EXPECT_EQ (set, nullptr);
    EXPECT_FALSE (opened.GetFilterSet (1, 1, &set));
    EXPECT_FALSE (opened.GetFilterSet (1, 0, nullptr));
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    EXPECT_STREQ (set->GetName(), "Cinema");
    EXPECT_STREQ (set->GetTechnology(), "");

    Filter* filter = nullptr;
    ASSERT_TRUE (set->GetFilter (1, &filter));
    EXPECT_STREQ (filter->GetName(), "SW");
    EXPECT_EQ (filter->GetChannel(), 1u);
    EXPECT_EQ (filter->GetGaindB(), 0.0f);
    EXPECT_EQ (filter->GetDelayMs(), 0.0f);
    EXPECT_FALSE (set->GetFilter (2, &filter));
}

TEST_F (DeviceInformation, ANamelessOccupiedSlotIsCalledFilter)
{
    profile.unit.mutable_devices (0)->mutable_filterslots (1)->clear_name();
    FilterSet* set = nullptr;
    ASSERT_TRUE (open().GetFilterSet (1, 0, &set));
    EXPECT_STREQ (set->GetName(), "Filter");
}

}
