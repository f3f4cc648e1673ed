// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/Profile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <stdexcept>

#include "protocol/TextForm.h"
#include "tools/receiver/device/ShippedProfiles.h"

namespace veltra::receiver {

namespace {

/** No profile comes near this size. */
constexpr std::size_t kMaxSize = 1024 * 1024;

/** What is wrong with a profile, in words. */
struct Mistake
{
    std::string text;
};

/** Where a section's fields stand: between its braces. */
struct Section
{
    std::string name;
    std::size_t begin = 0, end = 0;
};

/** Finds the sections of a profile and their ends; what is inside is protobuf's business. */
class SectionScanner
{
public:
    explicit SectionScanner (std::string_view profile) : text (profile) {}

    /** @returns false at the end of the text */
    bool next (Section& section)
    {
        skipBlanks();

        if (position == text.size())
            return false;

        const auto start = position;

        while (position < text.size()
               && (std::isalnum (static_cast<unsigned char> (text[position])) || text[position] == '_'))
            ++position;

        section.name = text.substr (start, position - start);

        if (section.name.empty())
            fail (std::string ("\"") + text[start] + "\" stands where a section should begin");

        skipBlanks();

        if (position < text.size() && text[position] == ':')
            ++position;

        skipBlanks();

        if (position == text.size() || text[position] != '{')
            fail ("\"" + section.name + "\" is not followed by \"{\"");

        section.begin = ++position;
        skipToClosingBrace (section.name);
        section.end = position++;
        return true;
    }

    [[noreturn]] void fail (const std::string& what) const
    {
        const auto before = text.substr (0, position);
        throw Mistake { "line " + std::to_string (std::count (before.begin(), before.end(), '\n') + 1) + ": " + what };
    }

private:
    void skipBlanks()
    {
        while (position < text.size())
        {
            if (text[position] == '#')
                position = std::min (text.find ('\n', position), text.size());
            else if (std::isspace (static_cast<unsigned char> (text[position])))
                ++position;
            else
                break;
        }
    }

    void skipToClosingBrace (const std::string& name)
    {
        const auto start = position;

        for (int depth = 1; position < text.size(); ++position)
        {
            const auto c = text[position];

            if (c == '#')
                position = std::min (text.find ('\n', position), text.size()) - 1;
            else if (c == '"' || c == '\'')
                skipString (c);
            else if (c == '{')
                ++depth;
            else if (c == '}' && --depth == 0)
                return;
        }

        position = start;
        fail ("the brace of \"" + name + "\" is not closed");
    }

    /** Leaves the position at the closing quote, or where a string that has none breaks off; protobuf says what is
        wrong with that. */
    void skipString (char quote)
    {
        for (++position; position < text.size() && text[position] != quote && text[position] != '\n'; ++position)
            if (text[position] == '\\')
                ++position;
    }

    const std::string_view text;
    std::size_t position = 0;
};

/** The whole text with everything blank but one section, so that errors have the file's lines and columns. */
std::string isolate (std::string_view text, const Section& section)
{
    std::string result (text);

    for (std::size_t i = 0; i < result.size(); ++i)
        if ((i < section.begin || i >= section.end) && result[i] != '\n' && result[i] != '\t')
            result[i] = ' ';

    return result;
}

void checkReferences (const Profile& profile)
{
    for (const auto& device : profile.unit.devices())
    {
        std::vector<std::uint32_t> known;

        for (const auto& channel : device.outputchannels())
        {
            if (std::find (known.begin(), known.end(), channel.channelindex()) != known.end())
                throw Mistake { "unit: two channels have the channelIndex " + std::to_string (channel.channelindex()) };

            known.push_back (channel.channelindex());
        }

        for (const auto& configuration : device.configurations())
            for (const auto index : configuration.channels())
                if (std::find (known.begin(), known.end(), index) == known.end())
                    throw Mistake { "unit: a configuration has the channel " + std::to_string (index)
                                    + ", which is no channelIndex" };
    }
}

Profile read (std::string_view text)
{
    if (text.size() > kMaxSize)
        throw Mistake { "longer than 1 MiB" };

    Profile profile;
    struct Part
    {
        std::string_view name;
        google::protobuf::MessageLite& message;
        bool isThere = false;
    };
    std::array<Part, 4> parts { { { "protocolInfo", profile.protocolInfo },
                                  { "unit", profile.unit },
                                  { "topologyInfo", profile.topologyInfo },
                                  { "stimulusInfo", profile.stimulusInfo } } };

    SectionScanner scanner (text);

    for (Section section; scanner.next (section);)
    {
        const auto part =
            std::find_if (parts.begin(), parts.end(), [&] (const auto& p) { return p.name == section.name; });

        if (part == parts.end())
            scanner.fail ("\"" + section.name + "\" is none of protocolInfo, unit, topologyInfo and stimulusInfo");

        if (part->isThere)
            scanner.fail ("a second \"" + section.name + "\"");

        part->isThere = true;

        std::string error;

        if (! veltraio::fromText (isolate (text, section), part->message, error))
            throw Mistake { section.name + ": " + error };
    }

    for (const auto& part : parts)
        if (! part.isThere)
            throw Mistake { "\"" + std::string (part.name) + "\" is missing" };

    checkReferences (profile);
    return profile;
}

}

std::optional<Profile> parseProfile (std::string_view text, std::string& error)
try
{
    return read (text);
}
catch (const Mistake& mistake)
{
    error = mistake.text;
    return {};
}

std::optional<Profile> loadProfile (const std::filesystem::path& file, std::string& error)
{
    std::ifstream stream (file, std::ios::binary);
    std::string text (kMaxSize + 1, '\0');
    stream.read (text.data(), static_cast<std::streamsize> (text.size()));

    if (! stream.is_open() || stream.bad())
    {
        error = file.string() + " cannot be read";
        return {};
    }

    text.resize (static_cast<std::size_t> (stream.gcount()));
    auto profile = parseProfile (text, error);

    if (! profile)
        error = file.string() + ": " + error;

    return profile;
}

Profile shippedProfile (std::string_view name)
{
    for (const auto& shipped : shippedProfiles())
        if (shipped.name == name)
            return read (shipped.text);

    throw std::out_of_range ("there is no profile " + std::string (name));
}

const std::vector<std::string>& shippedProfileNames()
{
    static const auto names = [] {
        std::vector<std::string> result;

        for (const auto& shipped : shippedProfiles())
            result.emplace_back (shipped.name);

        return result;
    }();
    return names;
}

}
