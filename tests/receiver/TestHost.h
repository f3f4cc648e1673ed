// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/receiver/ModelHost.h"
#include "tests/support/Envelope.h"
#include "tools/receiver/network/Sockets.h"

namespace veltra::receiver {

/** The host's side of a connection, which writes and reads its envelopes itself. */
class TestHost
{
public:
    explicit TestHost (std::uint16_t port) : socket (platform::openSocket (SOCK_STREAM))
    {
        sockaddr_in name {};
        name.sin_family = AF_INET;
        name.sin_port = htons (port);
        name.sin_addr.s_addr = htonl (INADDR_LOOPBACK);

        EXPECT_EQ (0, ::connect (socket.get(), reinterpret_cast<sockaddr*> (&name), sizeof (name)));
    }

    static std::string envelopeOf (const std::string& message)
    {
        const auto parsed = messageOf (message);
        return test::envelopeOf (parsed->GetTypeName(), parsed->SerializeAsString());
    }

    void sendBytes (std::string_view bytes)
    {
        EXPECT_EQ (std::ssize (bytes), ::send (socket.get(), bytes.data(),
                                               static_cast<platform::ByteCount> (bytes.size()), platform::kNoSignal));
    }

    /** The next envelope: the message's name, and its text form on the same line; "wrong checksum", or "nothing" when the
        connection ends or half a minute is over. Bytes before a marker are skipped and counted. */
    std::string receive()
    {
        for (;;)
        {
            const auto start = pending.find ("\x21\x01\xFF");

            if (start != pending.npos && start + 15 <= pending.size()
                && start + 15 + wordAt (start + 3) <= pending.size())
            {
                const auto body = pending.substr (start + 15, wordAt (start + 3));
                const std::string name (messageName (wordAt (start + 7)));
                const bool checksumFits = test::hashOf (body) == wordAt (start + 11);
                noiseBytes += start;
                pending.erase (0, start + 15 + body.size());
                const auto message = createMessage (name);
                message->ParsePartialFromString (body);
                return checksumFits ? name + " " + veltraio::toText (*message) : "wrong checksum";
            }

            char buffer[65536];
            const auto count = waitForBytes() ? ::recv (socket.get(), buffer, sizeof (buffer), 0) : 0;

            if (count <= 0)
                return "nothing";

            pending.append (buffer, static_cast<std::size_t> (count));
        }
    }

    std::string say (const std::string& message)
    {
        sendBytes (envelopeOf (message));
        return receive();
    }

    /** @returns "closed" or "reset", "bytes" when there is something to read, "open" after half a minute without */
    std::string waitForEnd()
    {
        char byte = 0;
        const auto count = waitForBytes() ? ::recv (socket.get(), &byte, 1, 0) : -2;
        return count > 0 ? "bytes" : count == 0 ? "closed" : count == -2 ? "open" : "reset";
    }

    std::size_t noiseBytes = 0;

private:
    bool waitForBytes() const
    {
        pollfd waiting { socket.get(), POLLIN, 0 };
        return platform::wait (&waiting, 1, 30000) > 0;
    }

    std::uint32_t wordAt (std::size_t place) const
    {
        std::uint32_t value = 0;

        for (const unsigned char byte : pending.substr (place, 4))
            value = value << 8 | byte;

        return value;
    }

    Descriptor socket;
    std::string pending;
};

}
