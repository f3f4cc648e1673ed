// SPDX-License-Identifier: GPL-3.0-or-later

#include "discovery/ConnectionManager.h"
#include "protocol/EnvelopeParser.h"
#include "tests/support/LogLines.h"
#include "tests/support/Testing.h"

namespace {

using namespace veltraio;

/** A loopback port that accepts connections and sends nothing. */
struct Listener
{
    Listener() { EXPECT_TRUE (socket.createListener (0, "127.0.0.1")); }

    juce::String address() const { return "TCP:127.0.0.1:" + juce::String (socket.getBoundPort()); }

    juce::StreamingSocket socket;
};

TEST (ConnectionManager, ConnectsByTheAddressOfATransportAndIgnoresUnknownOnesSilently)
{
    LogLines log;
    Listener listener;
    ConnectionManager manager (0);
    const auto connection = manager.Connect (listener.address());

    ASSERT_NE (nullptr, connection);
    EXPECT_TRUE (connection->isConnected());
    EXPECT_EQ (listener.address(), connection->getName());

    for (const auto& address : { juce::String(), juce::String ("TCP6:127.0.0.1:1"), juce::String ("tcp:127.0.0.1:1"),
                                 listener.address().substring (4) })
        EXPECT_EQ (nullptr, manager.Connect (address)) << address;

    EXPECT_TRUE (log.all().empty());
}

TEST (ConnectionManager, AnAddressThatCannotBeReachedIsLoggedOnce)
{
    ConnectionManager manager (0);

    for (const std::string address : { "", "127.0.0.1", "127.0.0.1:", "127.0.0.1:port", "127.0.0.1:99999999999999",
                                       ":80", "127.0.0.1:-5", "no host of this name:80" })
    {
        LogLines log;
        EXPECT_EQ (nullptr, manager.Connect ("TCP:" + address));
        EXPECT_EQ ((std::vector<LogLines::Line> { { "ERROR", "VeltraIO: Failed to connect to " + address } }),
                   log.all());
    }
}

TEST (ConnectionManager, SetsTheEnvelopeMarkerOfTheProcess)
{
    const std::vector<std::uint8_t> marker { 1, 2 };
    ConnectionManager changed (0, marker);
    EXPECT_EQ (marker, getEnvelopeMarker());
    ConnectionManager usual (0);
    EXPECT_EQ ((std::vector<std::uint8_t> { 0x21, 0x01, 0xFF }), getEnvelopeMarker());
}

}
