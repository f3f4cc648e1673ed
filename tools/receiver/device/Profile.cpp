// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/Profile.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/receiver/device/EmbeddedFiles.h"
#include "tools/receiver/device/profile.pb.h"
#include "tools/receiver/device/ProtoText.h"

namespace veltra::receiver {

namespace {

/** No profile comes near this size. */
constexpr std::size_t kMaxSize = 1024 * 1024;

struct ShippedProfile
{
    std::string name;
    std::string_view text;
};

const std::vector<ShippedProfile>& shippedProfiles()
{
    const auto text = [] (const unsigned char* bytes, std::size_t size) {
        return std::string_view (reinterpret_cast<const char*> (bytes), size);
    };
    static const std::vector<ShippedProfile> profiles { { "stereo", text (stereoProfile, stereoProfileSize) },
                                                        { "seven-one", text (sevenOneProfile, sevenOneProfileSize) },
                                                        { "twelve", text (twelveProfile, twelveProfileSize) } };
    return profiles;
}

/** What the schema cannot express: channel numbers are unique, and configurations name existing ones.
    @returns the error; empty when there is none */
std::string checkChannels (const veltraio::Unit& unit)
{
    for (const auto& device : unit.devices())
    {
        std::set<std::uint32_t> known;

        for (const auto& channel : device.outputchannels())
            if (! known.insert (channel.channelindex()).second)
                return "unit: two channels have the channelIndex " + std::to_string (channel.channelindex());

        for (const auto& configuration : device.configurations())
            for (const auto index : configuration.channels())
                if (! known.contains (index))
                    return "unit: a configuration contains the channel " + std::to_string (index)
                           + ", but no channel has this channelIndex";
    }

    return {};
}

}

std::optional<Profile> parseProfile (std::string_view text, std::string& error)
{
    if (text.size() > kMaxSize)
    {
        error = "longer than 1 MiB";
        return {};
    }

    ProfileFile file;

    if (! readText (text, file, error))
        return {};

    error = checkChannels (file.unit());

    if (! error.empty())
        return {};

    return Profile { file.protocolinfo(), file.unit(), file.topologyinfo(), file.stimulusinfo() };
}

std::optional<Profile> loadProfile (const std::filesystem::path& file, std::string& error)
{
    std::string text;

    try
    {
        text = readInput (file, kMaxSize);
    }
    catch (const Failure&)
    {
        error = inputName (file) + " cannot be read";
        return {};
    }

    auto profile = parseProfile (text, error);

    if (! profile)
        error = inputName (file) + ": " + error;

    return profile;
}

Profile shippedProfile (std::string_view name)
{
    const auto& all = shippedProfiles();
    const auto found =
        std::find_if (all.begin(), all.end(), [&] (const auto& shipped) { return shipped.name == name; });

    if (found == all.end())
        throw std::out_of_range ("there is no profile " + std::string (name));

    std::string error;
    const auto profile = parseProfile (found->text, error);

    if (! profile)
        throw std::runtime_error (found->name + ": " + error);

    return *profile;
}

std::vector<std::string> shippedProfileNames()
{
    std::vector<std::string> names;

    for (const auto& shipped : shippedProfiles())
        names.push_back (shipped.name);

    return names;
}

}
