// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <juce_core/juce_core.h>

#include "protocol/SocketPlatform.h"

namespace upnp {

using veltra::ipc::platform::AdapterAddress;
using veltra::ipc::platform::adapterAddresses;

/** Where to search: 127.0.0.1 first, then the first address of each adapter, in the order of the list, without
    0.0.0.0 and without repetitions. */
std::vector<juce::String> searchAddresses (const std::vector<AdapterAddress>& adapterAddresses);

}
