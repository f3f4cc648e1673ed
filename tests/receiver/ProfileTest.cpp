// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "tools/receiver/device/Profile.h"

namespace veltra::receiver {
namespace {

const std::string kSmall = R"(
protocolInfo { versionInfo: 8 }  # no limit }
unit {
  manufacturer: "a \"brace\" }"
  name: 'b {'
  capabilities: 2
  maxChannelAttenuation_dB: 1.5
}
topologyInfo: {}
stimulusInfo { stimulusLatencyMilliseconds: 3 }
)";

std::string errorOf (const std::string& text)
{
    std::string error;
    EXPECT_FALSE (parseProfile (text, error));
    return error;
}

std::string replaced (std::string text, std::string_view what, std::string_view by)
{
    return text.replace (text.find (what), what.size(), by);
}

TEST (Profile, IsReadFromFourSectionsOfProtobufText)
{
    std::string error;
    const auto profile = parseProfile (kSmall, error);
    ASSERT_TRUE (profile) << error;
    EXPECT_FALSE (profile->protocolInfo.has_messagelimit());
    EXPECT_EQ (profile->unit.manufacturer(), "a \"brace\" }");
    EXPECT_EQ (profile->unit.maxchannelattenuation_db(), 1.5f);
    EXPECT_EQ (profile->stimulusInfo.stimuluslatencymilliseconds(), 3u);
}

TEST (Profile, TellsWhereAMistakeIs)
{
    EXPECT_EQ (errorOf (replaced (kSmall, "capabilities: 2", "capabilities: x")).substr (0, 29),
               "unit: line 6, column 17: Expe");
    EXPECT_NE (errorOf (replaced (kSmall, "capabilities: 2", "")).find ("unit: "), std::string::npos);
    EXPECT_EQ (errorOf (replaced (kSmall, "stimulusInfo", "stimuli")),
               "line 10: \"stimuli\" is none of protocolInfo, unit, topologyInfo and stimulusInfo");
    EXPECT_EQ (errorOf (kSmall + "unit {}"), "line 11: a second \"unit\"");
    EXPECT_EQ (errorOf (replaced (kSmall, "topologyInfo: {}", "")), "\"topologyInfo\" is missing");
    EXPECT_EQ (errorOf (replaced (kSmall, "3 }", "3")), "line 10: the brace of \"stimulusInfo\" is not closed");
    EXPECT_EQ (errorOf ("protocolInfo = 3"), "line 1: \"protocolInfo\" is not followed by \"{\"");
    EXPECT_EQ (errorOf ("\n;"), "line 2: \";\" stands where a section should begin");
    EXPECT_NE (errorOf (replaced (kSmall, "capabilities: 2",
                                  "devices { name: '' configurations { channels: 4 } } capabilities: 2"))
                   .find ("channel 4"),
               std::string::npos);

    std::string error;
    EXPECT_FALSE (loadProfile ("no/such/file", error));
    EXPECT_EQ (error, "no/such/file cannot be read");
}

TEST (Profile, ShippedOnesAreWhatTheirFilesSayAndListChannelsInAscendingOrder)
{
    for (const auto& name : shippedProfileNames())
    {
        SCOPED_TRACE (name);
        std::string error;
        const auto profile = loadProfile ("examples/receivers/" + name + ".textproto", error);
        ASSERT_TRUE (profile) << error;
        EXPECT_EQ (shippedProfile (name).unit.SerializeAsString(), profile->unit.SerializeAsString());

        ASSERT_EQ (profile->unit.devices_size(), 1);
        std::uint32_t next = 0;
        for (const auto& channel : profile->unit.devices (0).outputchannels())
            EXPECT_EQ (channel.channelindex(), next++);
    }
    EXPECT_EQ (shippedProfile ("twelve").unit.devices (0).outputchannels_size(), 12);
    EXPECT_THROW (shippedProfile ("quadro"), std::out_of_range);
}

}
}
