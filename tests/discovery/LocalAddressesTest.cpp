// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/LocalAddresses.h"

#include "tests/support/NetworkNamespace.h"

namespace {

using Addresses = std::vector<juce::String>;

}

TEST (LocalAddresses, LoopbackComesFirstThenTheFirstAddressOfEachAdapter)
{
    EXPECT_EQ (upnp::searchAddresses ({}), Addresses { "127.0.0.1" });
    EXPECT_EQ (upnp::searchAddresses ({ { "eth0", "10.0.0.1" },
                                        { "lo", "127.0.0.1" },
                                        { "eth0", "10.0.0.2" },
                                        { "lo", "127.0.0.2" },
                                        { "tun0", "0.0.0.0" },
                                        { "tun0", "10.1.0.1" },
                                        { "br0", "10.0.0.1" },
                                        { "eth1", "10.0.0.2" } }),
               (Addresses { "127.0.0.1", "10.0.0.1", "10.1.0.1", "10.0.0.2" }));
}

using LocalAddressesOfANetwork = PrivateNetworkTest;

TEST_F (LocalAddressesOfANetwork, EveryAdapterIsListedUpOrDownAndItsAliasesAreNoAdapters)
{
    NetworkNamespace other;
    home->connect ("10.82.1.1", other, "10.82.1.2");
    home->connect ("10.82.2.1", other, "10.82.2.2");
    home->ip ("address add 10.82.3.1/24 dev " + NetworkNamespace::interfaceName ("10.82.1.1") + " label "
              + NetworkNamespace::interfaceName ("10.82.1.1") + ":1");
    home->ip ("link set " + NetworkNamespace::interfaceName ("10.82.2.1") + " down");

    Addresses found;
    home->run ([&] { found = upnp::searchAddresses (upnp::adapterAddresses()); });
    std::sort (found.begin() + 1, found.end());
    EXPECT_EQ (found, (Addresses { "127.0.0.1", "10.82.1.1", "10.82.2.1" }));
}
