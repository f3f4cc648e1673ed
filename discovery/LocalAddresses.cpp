// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/LocalAddresses.h"

#include <algorithm>

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

}
