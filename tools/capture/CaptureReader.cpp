// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/capture/CaptureReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace veltra::capture {

namespace {

constexpr std::uint32_t kLongestBlock = 1 << 20;

std::uint32_t word (std::string_view bytes, std::size_t at, bool isBigEndian)
{
    std::uint32_t value = 0;

    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<std::uint8_t> (bytes[at + (isBigEndian ? i : 3 - i)]);

    return value;
}

std::uint32_t network16 (std::string_view bytes, std::size_t at)
{
    return static_cast<std::uint32_t> (static_cast<std::uint8_t> (bytes[at]) << 8
                                       | static_cast<std::uint8_t> (bytes[at + 1]));
}

/** A segment of TCP over IPv4. */
struct Segment
{
    std::string source, target; ///< address and port
    std::uint32_t sequence = 0;
    bool opens = false, acknowledges = false;
    std::string_view payload;
};

std::optional<Segment> segmentIn (std::string_view ip)
{
    if (ip.size() < 40 || (ip[0] & 0xF0) != 0x40 || ip[9] != 6)
        return {};

    const auto ipSize = static_cast<std::size_t> (ip[0] & 0x0F) * 4;
    const auto whole = std::min<std::size_t> (network16 (ip, 2), ip.size());

    if (ipSize < 20 || ipSize + 20 > whole)
        return {};

    const auto tcp = ip.substr (ipSize, whole - ipSize);
    const auto tcpSize = static_cast<std::size_t> (static_cast<std::uint8_t> (tcp[12]) >> 4) * 4;

    if (tcpSize < 20 || tcpSize > tcp.size())
        return {};

    return Segment { std::string (ip.substr (12, 4)) + std::string (tcp.substr (0, 2)),
                     std::string (ip.substr (16, 4)) + std::string (tcp.substr (2, 2)),
                     word (tcp, 4, true),
                     (tcp[13] & 0x02) != 0,
                     (tcp[13] & 0x10) != 0,
                     tcp.substr (tcpSize) };
}

/** Puts the segments of all connections into conversations. */
class Assembly
{
public:
    void add (const Segment& segment)
    {
        const std::pair<std::string, std::string> key (std::minmax (segment.source, segment.target));
        auto found = open.find (key);

        if (found == open.end() || (segment.opens && ! segment.acknowledges))
        {
            const auto& host = segment.opens && segment.acknowledges ? segment.target : segment.source;
            found = open.insert_or_assign (key, Open { conversations.size(), host, {} }).first;
            conversations.emplace_back();
        }

        auto& side = found->second.next[segment.source == found->second.host ? 0 : 1];

        if (segment.opens)
            side = segment.sequence + 1;

        if (segment.payload.empty())
            return;

        const auto expected = side.value_or (segment.sequence);
        const auto before = static_cast<std::int32_t> (expected - segment.sequence); // bytes that have come already

        if (before < 0)
            throw std::runtime_error ("it lacks bytes of a conversation");

        if (static_cast<std::size_t> (before) >= segment.payload.size())
            return;

        conversations[found->second.number].pieces.push_back (
            { segment.source == found->second.host ? Side::host : Side::receiver,
              std::string (segment.payload.substr (static_cast<std::size_t> (before))) });
        side = segment.sequence + static_cast<std::uint32_t> (segment.payload.size());
    }

    std::vector<RecordedConversation> conversations;

private:
    struct Open
    {
        std::size_t number;
        std::string host;
        std::array<std::optional<std::uint32_t>, 2> next; ///< sequence numbers of host and receiver
    };

    std::map<std::pair<std::string, std::string>, Open> open;
};

}

std::vector<RecordedConversation> readCapture (const std::filesystem::path& file)
{
    std::ifstream stream (file, std::ios::binary);

    if (! stream)
        throw std::runtime_error ("it cannot be read");

    return readCapture (stream);
}

std::vector<RecordedConversation> readCapture (std::istream& stream)
{
    Assembly assembly;
    std::vector<std::uint32_t> linkTypes;
    std::string head (12, '\0');
    bool isBigEndian = false, isFirst = true;

    while (stream.read (head.data(), 12))
    {
        if (head.starts_with ("\x0A\x0D\x0D\x0A"))
        {
            isBigEndian = head.ends_with ("\x1A\x2B\x3C\x4D");
            linkTypes.clear();
        }
        else if (isFirst)
            throw std::runtime_error ("it is not a pcapng file");

        isFirst = false;
        const auto type = word (head, 0, isBigEndian), length = word (head, 4, isBigEndian);

        if (length < 12 || length % 4 != 0 || length > kLongestBlock)
            throw std::runtime_error ("a block of it has a length of " + std::to_string (length));

        std::string body (length - 12, '\0'); // what follows the 12 bytes, with the length once more at the end

        if (! stream.read (body.data(), static_cast<std::streamsize> (body.size())))
            break;

        body.insert (0, head, 8, 4);

        if (type == 1)
            linkTypes.push_back (word (body, 0, isBigEndian) >> (isBigEndian ? 16 : 0) & 0xFFFF);

        if (type != 6 || body.size() < 24)
            continue;

        const auto interface = word (body, 0, isBigEndian), size = word (body, 12, isBigEndian);
        const auto linkType = interface < linkTypes.size() ? linkTypes[interface] : 0;
        const std::size_t linkSize = linkType == 1 ? 14 : 0;

        if (size > body.size() - 24 || size < linkSize)
            continue;

        if (const auto segment = segmentIn (std::string_view (body).substr (20 + linkSize, size - linkSize)))
            assembly.add (*segment);
    }

    return std::move (assembly.conversations);
}

}
