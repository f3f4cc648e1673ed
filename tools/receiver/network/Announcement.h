// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltra::receiver {

/** The element of the description that marks a device of this protocol and contains its port. */
enum class Extension
{
    features, ///< an element x_features with the text VeltraIO-PORT
    port      ///< an element x_port with the port
};

/** How a receiver describes itself to searching hosts, and the texts that do it. */
struct Announcement
{
    std::string friendlyName {};
    std::string manufacturer {};
    std::string model {};
    std::string serialNumber {};
    std::uint16_t port = 0; ///< of the protocol
    Extension extension = Extension::features;
    std::string uuid = randomUuid();

    static std::string randomUuid();

    /** The UPnP device description with the extension element. */
    std::string description() const;

    /** The headers ST and MX of an M-SEARCH request. */
    struct Search
    {
        std::string target;
        std::chrono::seconds longestWait { 0 };
    };

    /** Reads a datagram of the multicast group.
        @returns nothing for another message, and for a search without ST or with an MX below 1 */
    static std::optional<Search> parseSearch (std::string_view datagram);

    /** The answers to a search: one for each name of this device that its target matches.
        @param location  URL of the description */
    std::vector<std::string> answers (const Search& search, const std::string& location) const;
};

}
