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

/** How a receiver describes itself: the answers to the four requests that open a session. */
struct Profile
{
    veltraio::ProtocolInfo protocolInfo;
    veltraio::Unit unit;
    veltraio::TopologyInfo topologyInfo;
    veltraio::StimulusInfo stimulusInfo;
};

/** Reads a profile: the text form of the message in profile.proto.

        protocolInfo { versionInfo: 8 messageLimit: 460 }
        unit { manufacturer: "..." ... }
        topologyInfo { topologies { name: "FIR" sampleRate: 48000 information: "NbrOfFIRTaps=4096" } }
        stimulusInfo { stimulusLatencyMilliseconds: 0 }

    @param error  line, column and the reason
    @returns      nothing after an error */
std::optional<Profile> parseProfile (std::string_view text, std::string& error);

/** The same from a file; the error begins with the file's name. */
std::optional<Profile> loadProfile (const std::filesystem::path& file, std::string& error);

/** One of the profiles that are compiled in.
    @throws std::out_of_range for a name that is not in shippedProfileNames() */
Profile shippedProfile (std::string_view name);

std::vector<std::string> shippedProfileNames();

}
