// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Opening sessions: what goes over the wire, what the log says, and what comes of a receiver that does not play along.
    A description that never comes is among the faults of the reliability tests.
*/

#include "tests/support/DeviceFixture.h"

#include "common/SettingKeys.h"
#include "plugin/Session.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class SessionOpening : public DeviceFixture
{
protected:
    std::string address() const { return "TCP:" + receiver->address(); }

    /** Whether a StartStimulus goes out when its envelope has so many bytes. */
    bool goesOut (std::size_t envelopeBytes)
    {
        startAfresh();

        for (std::uint32_t i = 2; i < 300; ++i)
        {
            auto& channel = *profile.unit.mutable_devices (0)->add_outputchannels();
            channel = profile.unit.devices (0).outputchannels (0);
            channel.set_channelindex (i);
        }

        const std::vector<std::uint32_t> channels ((envelopeBytes - 15 - 6) / 2, 1);
        open().StartStimulus (kStimulusNoise, channels.data(), static_cast<std::uint32_t> (channels.size()), 0);
        return receiver->messageCount ("StartStimulus") == 1;
    }
};

}

TEST_F (SessionOpening, FourDescriptionsAreReadInOrder)
{
    ASSERT_TRUE (find());

    EXPECT_EQ (
        logged(),
        (Lines { "INFO Device is specified as " + address() + ", skipping UPnP search",
                 "DEBUG Connecting to device @ '" + address() + "'...", "DEBUG Connected! Querying ProtocolInfo...",
                 "DEBUG Got device protocol info:\n" + veltraio::toText (profile.protocolInfo),
                 "DEBUG Querying Unit...", "DEBUG Got device unit info:\n" + veltraio::toText (profile.unit),
                 "DEBUG Got device topology info:\n" + veltraio::toText (profile.topologyInfo),
                 "DEBUG Got device stimulus info:\n" + veltraio::toText (profile.stimulusInfo) }));
}

TEST_F (SessionOpening, TheMessageLimitIsTheDevicesOrTheDefault)
{
    profile.protocolInfo.set_versioninfo (77); // accepted without comment
    profile.protocolInfo.set_messagelimit (301);
    EXPECT_TRUE (goesOut (301));
    EXPECT_FALSE (goesOut (303));

    profile.protocolInfo.set_messagelimit (0);
    EXPECT_TRUE (goesOut (601)) << "0 means no limit";

    profile.protocolInfo.clear_messagelimit();
    EXPECT_TRUE (goesOut (459));
    EXPECT_FALSE (goesOut (461));

    startAfresh();
    setFaults ("refuse GetProtocolInfo *");
    auto& opened = open();
    EXPECT_EQ (failuresLogged(), (Lines { "WARN Error retrieveing Protocol information" }));
    EXPECT_EQ (download (opened, description ("Room", std::string (460, 't')).text()), kResultFailed) << "460 bytes";
    EXPECT_EQ (download (opened), kResultOk);
}

TEST_F (SessionOpening, ADescriptionThatIsRefusedDropsTheCandidate)
{
    for (const auto& [fault, word] : { std::pair ("refuse GetUnit 1 'not today'", std::string ("Unit")),
                                       { "refuse GetTopologyInfo 1", "Topology" },
                                       { "refuse GetStimulusInfo 1", "Stimulus" },
                                       { "answer GetUnit 1 Acknowledge 'ok: true'", "Unit" } })
    {
        log.emplace();
        setFaults (fault);
        EXPECT_FALSE (find());
        EXPECT_EQ (failuresLogged(), (Lines { "ERROR Error retrieveing " + word + " information" }));
        EXPECT_TRUE (receiver->waitFor ([this] { return receiver->openSessions() == 0; })) << fault;
    }

    // A search adds to what is there.
    EXPECT_TRUE (find() && find());
    EXPECT_TRUE (device (0).SetActiveFilterSlot (2));
    EXPECT_EQ (device (1).GetActiveFilterSlot(), 2u);
    setFaults ("refuse GetUnit *");
    EXPECT_TRUE (find()) << "an earlier one is still there";
}

TEST_F (SessionOpening, TheFirstOfAUnitsDevicesIsMadeAndOneWithoutAnyIsDropped)
{
    *profile.unit.add_devices() = profile.unit.devices (0);
    profile.unit.mutable_devices (1)->set_name ("Zone 2");
    ASSERT_TRUE (find());
    EXPECT_STREQ (device (0).GetName(), "Morvane|Stereo 2|Main");
    Device* second = &device (0);
    EXPECT_FALSE (plugin->GetDevice (1, &second));
    EXPECT_EQ (second, &device (0)) << "left alone";
    EXPECT_FALSE (plugin->GetDevice (1, nullptr));

    startAfresh();
    profile.unit.mutable_devices (0)->set_name ("");
    EXPECT_STREQ (open().GetName(), "Morvane|Stereo 2|");
    veltraio::ConnectionManager manager (0);
    juce::PropertySet none;
    EXPECT_STREQ (plugin::openSession (manager.Connect (address()), "Lounge", none)->device->GetName(),
                  "Morvane|Stereo 2|Lounge");

    startAfresh();
    profile.unit.clear_devices();
    EXPECT_FALSE (find());
    EXPECT_TRUE (failuresLogged().empty()) << "without a word";
}

TEST_F (SessionOpening, WhereNobodyListensTheSearchFails)
{
    for (const auto* where : { "TCP:127.0.0.1:1", "TCP:127.0.0.1", "TCP:", "SERIAL:1", "nonsense", ":" })
    {
        startAfresh();
        settings[keys::kDevice] = where;
        EXPECT_FALSE (find()) << where;
        EXPECT_EQ (failuresLogged().back(), std::string ("WARN Connection to device @ '") + where + "' failed");
    }
}

}
