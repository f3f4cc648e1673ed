// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/LocalAddresses.h"

#include <algorithm>

#include "common/Log.h"

#if ! defined(_WIN32)
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <netinet/in.h>
#endif

namespace upnp {

std::vector<juce::String> searchAddresses (const std::vector<AdapterAddress>& addressesOfAdapters)
{
    std::vector<juce::String> result { "127.0.0.1" };
    std::vector<juce::String> adaptersSeen;

    const auto contains = [] (const auto& list, const juce::String& text) {
        return std::find (list.begin(), list.end(), text) != list.end();
    };

    for (const auto& [adapter, address] : addressesOfAdapters)
    {
        if (address == "0.0.0.0" || contains (adaptersSeen, adapter))
            continue;

        adaptersSeen.push_back (adapter);

        if (! contains (result, address))
            result.push_back (address);
    }

    return result;
}

#if defined(_WIN32)

std::vector<AdapterAddress> adapterAddresses()
{
    std::vector<AdapterAddress> result;

    // JUCE asks for one address an adapter there, so that each may count as an adapter of its own.
    for (const auto& address : juce::IPAddress::getAllAddresses (false))
        result.push_back ({ address.toString(), address.toString() });

    return result;
}

#else

std::vector<AdapterAddress> adapterAddresses()
{
    ::ifaddrs* list = nullptr;

    if (::getifaddrs (&list) != 0)
    {
        VELTRA_LOG (WARN, "Listing the network adapters failed: " << std::strerror (errno));
        return {};
    }

    std::vector<AdapterAddress> result;

    for (const auto* entry = list; entry != nullptr; entry = entry->ifa_next)
    {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;

        // Aliases such as eth0:1 are addresses of the adapter eth0.
        const auto adapter = juce::String::fromUTF8 (entry->ifa_name).upToFirstOccurrenceOf (":", false, false);
        char text[INET_ADDRSTRLEN] {};
        ::inet_ntop (AF_INET, &reinterpret_cast<const ::sockaddr_in*> (entry->ifa_addr)->sin_addr, text, sizeof (text));
        result.push_back ({ adapter, text });
    }

    ::freeifaddrs (list);
    return result;
}

#endif

}
