// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/veltraio.pb.h"

namespace veltra::receiver {

/** What a receiver says of itself: the answers to the four requests that open a session. */
struct Profile
{
    veltraio::ProtocolInfo protocolInfo;
    veltraio::Unit unit;
    veltraio::TopologyInfo topologyInfo;
    veltraio::StimulusInfo stimulusInfo;
};

/** Reads a profile from protobuf text:

        protocolInfo { versionInfo: 8 messageLimit: 460 }
        unit { manufacturer: "..." ... }
        topologyInfo { topologies { name: "FIR" sampleRate: 48000 information: "NbrOfFIRTaps=4096" } }
        stimulusInfo { stimulusLatencyMilliseconds: 0 }

    @param error  receives line, column and what is wrong
    @returns      nothing after an error */
std::optional<Profile> parseProfile (std::string_view text, std::string& error);

/** The same from a file; the error begins with the file's name. */
std::optional<Profile> loadProfile (const std::filesystem::path& file, std::string& error);

/** The profiles that come with the receiver: "stereo", "seven-one" and "twelve".
    @throws std::out_of_range for any other name */
Profile shippedProfile (std::string_view name);

const std::vector<std::string>& shippedProfileNames();

}
