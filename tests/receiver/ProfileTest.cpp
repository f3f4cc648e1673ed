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

/** The error of the small profile after a change. */
std::string errorAfter (std::string_view what, std::string_view by)
{
    auto text = kSmall;
    std::string error;
    EXPECT_FALSE (parseProfile (text.replace (text.find (what), what.size(), by), error)) << by;
    return error;
}

TEST (Profile, IsProtobufTextAndAnErrorSaysWhereItIs)
{
    std::string error;
    const auto profile = parseProfile (kSmall, error);
    ASSERT_TRUE (profile) << error;
    EXPECT_EQ ("a \"brace\" }", profile->unit.manufacturer());

    EXPECT_TRUE (errorAfter ("capabilities: 2", "capabilities: x").starts_with ("line 6, column 17: "));
    EXPECT_TRUE (errorAfter ("stimulusInfo", "stimuli").starts_with ("line 10, column 9: "));
    EXPECT_TRUE (errorAfter ("topologyInfo: {}", "unit {}").starts_with ("line 9, column 6: "));
    EXPECT_EQ ("Message missing required fields: unit.capabilities", errorAfter ("capabilities: 2", ""));
    EXPECT_EQ ("unit: a configuration contains the channel 4, but no channel has this channelIndex",
               errorAfter ("capabilities: 2", "devices { name: '' configurations { channels: 4 } } capabilities: 2"));

    EXPECT_FALSE (loadProfile ("no/such/file", error));
    EXPECT_EQ ("no/such/file cannot be read", error);
}

TEST (Profile, ShippedOnesAreWhatTheirFilesSay)
{
    for (const auto& name : shippedProfileNames())
    {
        std::string error;
        const auto profile = loadProfile ("examples/receivers/" + name + ".textproto", error);
        ASSERT_TRUE (profile) << error;
        EXPECT_EQ (profile->unit.SerializeAsString(), shippedProfile (name).unit.SerializeAsString());
    }

    EXPECT_THROW (shippedProfile ("quadro"), std::out_of_range);
}

}
}
