/** @file
    Opening sessions: what goes over the wire, what the log says, and what comes of a receiver that does not play along.
    The cases in which a description never comes stand in WaitsTest.cpp.
*/

#include "tests/plugin/DeviceFixture.h"

#include "plugin/CandidateList.h"
#include "plugin/ScanCallback.h"
#include "plugin/Session.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class SessionOpening : public DeviceFixture
{
protected:
    std::string address() const { return "TCP:" + receiver->address(); }

    /** Gives the device channels enough for a StartStimulus of any length. */
    void addChannels (int count)
    {
        for (int i = 2; i < count; ++i)
        {
            auto& channel = *profile.unit.mutable_devices (0)->add_outputchannels();
            channel.set_name ("C");
            channel.set_type (veltraio::Unit::Device::ChannelInfo::Type_kSmall);
            channel.set_channelindex (static_cast<std::uint32_t> (i));
        }
    }

    /** Whether a StartStimulus whose envelope has so many bytes goes out. */
    bool goesOut (Device2& target, std::size_t envelopeBytes)
    {
        const auto before = receiver->messageCount ("StartStimulus");
        const std::vector<std::uint32_t> channels ((envelopeBytes - 15 - 6) / 2, 1);
        target.StartStimulus (kStimulusNoise, channels.data(), static_cast<std::uint32_t> (channels.size()), 0);
        return receiver->messageCount ("StartStimulus") == before + 1;
    }
};

}

TEST_F (SessionOpening, FourDescriptionsAreReadInOrder)
{
    ASSERT_TRUE (find());

    EXPECT_EQ (received<veltraio::Request> ("Request"), (std::vector<std::string> {
        "requestType: RequestType_kGetProtocolInfo deviceIndex: 0", "requestType: RequestType_kGetUnit deviceIndex: 0",
        "requestType: RequestType_kGetTopologyInfo deviceIndex: 0", "requestType: RequestType_kGetStimulusInfo deviceIndex: 0" }));

    EXPECT_EQ (log.lines(), (std::vector<std::string> {
        "INFO Device is specified as " + address() + ", skipping UPnP search",
        "DEBUG Connecting to device @ '" + address() + "'...",
        "DEBUG Connected! Querying ProtocolInfo...",
        "DEBUG Got device protocol info:\n" + veltraio::toText (profile.protocolInfo),
        "DEBUG Querying Unit...",
        "DEBUG Got device unit info:\n" + veltraio::toText (profile.unit),
        "DEBUG Got device topology info:\n" + veltraio::toText (profile.topologyInfo),
        "DEBUG Got device stimulus info:\n" + veltraio::toText (profile.stimulusInfo) }));
}

TEST_F (SessionOpening, TheStatedMessageLimitReplacesTheDefault)
{
    profile.protocolInfo.set_messagelimit (301);
    addChannels (300);
    auto& opened = open();
    EXPECT_TRUE (goesOut (opened, 301));
    EXPECT_FALSE (goesOut (opened, 303));
}

TEST_F (SessionOpening, ALimitOfZeroMeansNone)
{
    profile.protocolInfo.set_messagelimit (0);
    addChannels (300);
    EXPECT_TRUE (goesOut (open(), 1201));
}

TEST_F (SessionOpening, WithoutProtocolInfoTheDefaultLimitHolds)
{
    addChannels (300);
    setFaults ("refuse GetProtocolInfo *");
    auto& opened = open();
    EXPECT_TRUE (log.has ("WARN Error retrieveing Protocol information"));
    EXPECT_TRUE (goesOut (opened, 459));
    EXPECT_FALSE (goesOut (opened, 461));
}

TEST_F (SessionOpening, ALimitThatIsNotStatedIsTheDefault)
{
    addChannels (300);
    profile.protocolInfo.clear_messagelimit();
    profile.protocolInfo.set_versioninfo (77); // accepted without comment
    EXPECT_FALSE (goesOut (open(), 461));
}

TEST_F (SessionOpening, ARefusedDescriptionDropsTheCandidate)
{
    const std::pair<std::string, std::string> descriptions[] = {
        { "GetUnit", "Unit" }, { "GetTopologyInfo", "Topology" }, { "GetStimulusInfo", "Stimulus" } };

    for (const auto& [request, word] : descriptions)
    {
        log.clear();
        setFaults ("refuse " + request + " 1 'not today'");
        EXPECT_FALSE (find());
        EXPECT_TRUE (log.has ("ERROR Error retrieveing " + word + " information"));
        EXPECT_TRUE (receiver->waitFor ([this] { return receiver->openSessions() == 0; }))
            << "its connection was kept after " << request;
    }

    EXPECT_TRUE (find()) << "and the next search finds it";
}

/** An Acknowledge with ok true is no answer either. */
TEST_F (SessionOpening, OnlyTheDescriptionItselfCountsAsAnAnswer)
{
    setFaults ("answer GetUnit 1 Acknowledge 'ok: true'");
    EXPECT_FALSE (find());
    EXPECT_TRUE (log.has ("ERROR Error retrieveing Unit information"));
}

TEST_F (SessionOpening, AUnitWithoutDevicesIsDroppedWithoutAWord)
{
    profile.unit.clear_devices();
    EXPECT_FALSE (find());

    for (const auto& line : log.lines())
        EXPECT_FALSE (line.starts_with ("WARN") || line.starts_with ("ERROR")) << line;
}

TEST_F (SessionOpening, OnlyTheFirstOfAUnitsDevicesIsMade)
{
    *profile.unit.add_devices() = profile.unit.devices (0);
    profile.unit.mutable_devices (1)->set_name ("Zone 2");
    ASSERT_TRUE (find());

    Device* found = nullptr;
    ASSERT_TRUE (plugin->GetDevice (0, &found));
    EXPECT_STREQ (found->GetName(), "Morvane|Stereo 2|Main");
    EXPECT_FALSE (plugin->GetDevice (1, &found));
}

TEST_F (SessionOpening, AnotherSearchAddsToWhatIsThere)
{
    ASSERT_TRUE (find());
    ASSERT_TRUE (find());
    EXPECT_TRUE (device (0).SetActiveFilterSlot (2));
    EXPECT_EQ (device (1).GetActiveFilterSlot(), 2u);
    setFaults ("refuse GetUnit *");
    EXPECT_TRUE (find()) << "an earlier one is still there";
}

TEST_F (SessionOpening, WhereNobodyListensTheSearchFails)
{
    for (const auto* address : { "TCP:127.0.0.1:1", "TCP:127.0.0.1", "TCP:", "SERIAL:1", "nonsense", ":" })
    {
        plugin = nullptr;
        log.clear();
        settings["Device"] = address;
        EXPECT_FALSE (find()) << address;
        EXPECT_TRUE (log.has (std::string ("WARN Connection to device @ '") + address + "' failed")) << address;
    }
}

TEST_F (SessionOpening, ADescriptionInSmallPiecesAmongNoiseArrives)
{
    setFaults ("pieces GetUnit 1 7 1\nnoise GetTopologyInfo 1 100");
    EXPECT_TRUE (find());
}

TEST_F (SessionOpening, WithoutTheSettingNothingIsFoundYet)
{
    settings = { { "Device", "" }, { "ST", "urn:x" }, { "UPnPTimeout", "soon" } };
    EXPECT_FALSE (find());
    EXPECT_TRUE (log.has ("DEBUG Start device scan (filter='urn:x')"));
}

TEST_F (SessionOpening, AFriendlyNameStandsInForANamelessDevice)
{
    profile.unit.mutable_devices (0)->clear_name();
    profile.unit.mutable_devices (0)->set_name ("");
    ASSERT_TRUE (find());
    EXPECT_STREQ (device (0).GetName(), "Morvane|Stereo 2|");

    veltraio::ConnectionManager manager (0);
    juce::PropertySet none;
    const auto session = plugin::openSession (manager.Connect (address()), "Lounge", none);
    ASSERT_NE (session, nullptr);
    EXPECT_STREQ (session->device->GetName(), "Morvane|Stereo 2|Lounge");
}

TEST (Scan, DevicesBecomeCandidatesInTheOrderOfArrival)
{
    const LogCapture log;
    plugin::CandidateList candidates;
    veltraio::ConnectionManager nobody (99); // no transport of this kind
    plugin::ScanCallback scan (nobody, candidates, "x");
    EXPECT_FALSE (scan.isScanning());

    scan.OnScanStarted();
    scan.OnDeviceAdded ("VeltraIO", "TCP:192.0.2.1:6000", "Lounge");
    scan.OnDeviceAdded ("VeltraIO", "TCP:192.0.2.2:6000", "");
    scan.OnScanEnded();

    const auto found = candidates.take();
    ASSERT_EQ (found.size(), 2u);
    EXPECT_EQ (found[0].address, "TCP:192.0.2.1:6000");
    EXPECT_EQ (found[0].friendlyName, "Lounge");
    EXPECT_EQ (found[1].address, "TCP:192.0.2.2:6000");
    EXPECT_EQ (log.lines(), (std::vector<std::string> {
        "DEBUG Start device scan (filter='x')", "DEBUG Device scanning started...",
        "DEBUG Device added: VeltraIO (TCP:192.0.2.1:6000) friendlyName = Lounge",
        "DEBUG Device added: VeltraIO (TCP:192.0.2.2:6000) friendlyName = ", "DEBUG Device scanning ended..." }));
}

}
