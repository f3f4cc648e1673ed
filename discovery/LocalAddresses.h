// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <vector>

#include <juce_core/juce_core.h>

namespace upnp {

/** An IPv4 address of a network adapter. */
struct AdapterAddress
{
    juce::String adapter;
    juce::String address;
};

/** Where to search: 127.0.0.1 first, then the first address of each adapter, in the order of the list, without
    0.0.0.0 and without repetitions. */
std::vector<juce::String> searchAddresses (const std::vector<AdapterAddress>& adapterAddresses);

/** All IPv4 addresses of this machine's adapters in the system's order, whether the adapters are up or not.
    On failure, which is logged, none. */
std::vector<AdapterAddress> adapterAddresses();

}
