// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Announcement.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <random>

#include "common/Text.h"

namespace veltra::receiver {

namespace {

constexpr const char* kDeviceType = "urn:schemas-upnp-org:device:MediaRenderer:1";
constexpr const char* kFeaturesUrn = "urn:schemas-frontier-silicon-com:ir-1-0";
constexpr const char* kPortUrn = "urn:schemas-veltra-lab:veltraio-1-0";
constexpr int kLongestWait_s = 5; ///< UPnP lets a device treat larger values as this

std::string escaped (std::string_view text)
{
    std::string result;

    for (const char c : text)
        switch (c)
        {
            case '<': result += "&lt;"; break;
            case '>': result += "&gt;"; break;
            case '&': result += "&amp;"; break;
            default: result += c;
        }

    return result;
}

std::string element (const std::string& name, std::string_view text)
{
    return "    <" + name + ">" + escaped (text) + "</" + name.substr (0, name.find (' ')) + ">\n";
}

/** The value of a header, empty when there is none. */
std::string_view header (std::string_view message, std::string_view name)
{
    while (! message.empty())
    {
        const auto line = message.substr (0, message.find ('\n'));
        message.remove_prefix (std::min (line.size() + 1, message.size()));
        const auto colon = line.find (':');

        if (colon != line.npos && equalsIgnoringCase (trimmed (line.substr (0, colon)), name))
            return trimmed (line.substr (colon + 1));
    }

    return {};
}

}

std::string Announcement::randomUuid()
{
    std::random_device random;
    std::array<unsigned, 4> words;

    for (auto& word : words)
        word = random();

    // Version and variant of a random UUID, RFC 4122, 4.4.
    words[1] = (words[1] & 0xFFFF0FFFu) | 0x4000u;
    words[2] = (words[2] & 0x3FFFFFFFu) | 0x80000000u;
    std::array<char, 37> text;
    std::snprintf (text.data(), text.size(), "%08x-%04x-%04x-%04x-%04x%08x", words[0], words[1] >> 16,
                   words[1] & 0xFFFFu, words[2] >> 16, words[2] & 0xFFFFu, words[3]);
    return text.data();
}

std::string Announcement::description() const
{
    const bool isFeatures = extension == Extension::features;
    const auto number = std::to_string (port);

    // The extension comes last: hosts stop reading there.
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<root xmlns=\"urn:schemas-upnp-org:device-1-0\" xmlns:ext=\""
           + std::string (isFeatures ? kFeaturesUrn : kPortUrn)
           + "\">\n"
             "  <specVersion>\n    <major>1</major>\n    <minor>0</minor>\n  </specVersion>\n"
             "  <device>\n"
           + element ("deviceType", kDeviceType) + element ("friendlyName", friendlyName)
           + element ("manufacturer", manufacturer) + element ("modelName", model)
           + element ("serialNumber", serialNumber) + element ("UDN", "uuid:" + uuid)
           + (isFeatures ? element ("ext:x_features", "VeltraIO-" + number) : element ("ext:x_port", number))
           + "  </device>\n</root>\n";
}

std::optional<Announcement::Search> Announcement::parseSearch (std::string_view datagram)
{
    const auto wait = header (datagram, "MX");
    int seconds = 0;
    std::from_chars (wait.data(), wait.data() + wait.size(), seconds);
    Search search { std::string (header (datagram, "ST")), std::chrono::seconds (std::min (seconds, kLongestWait_s)) };

    if (! datagram.starts_with ("M-SEARCH * HTTP/1.1\r\n") || header (datagram, "MAN") != "\"ssdp:discover\""
        || seconds < 1 || search.target.empty())
        return std::nullopt;

    return search;
}

std::vector<std::string> Announcement::answers (const Search& search, const std::string& location) const
{
    const auto id = "uuid:" + uuid;
    std::vector<std::string> result;

    for (const std::string& name : { std::string ("upnp:rootdevice"), id, std::string (kDeviceType) })
        if (search.target == name || search.target == "ssdp:all")
            result.push_back ("HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1800\r\nEXT:\r\nLOCATION: " + location
                              + "\r\nSERVER: POSIX UPnP/1.0 veltra-receiver/1.0\r\nST: " + name + "\r\nUSN: " + id
                              + (name == id ? "" : "::" + name) + "\r\n\r\n");

    return result;
}

}
