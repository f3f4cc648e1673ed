// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "tests/support/Testing.h"
#include "tools/receiver/network/Sockets.h"

/** A device in bytes of the test's own making: it listens on a loopback port. */
class TestPeer
{
public:
    /** The far end of one connection. */
    class Socket : public veltra::receiver::HostSocket
    {
    public:
        using HostSocket::HostSocket;

        /** So many bytes, or fewer when no more come. */
        std::string read (std::size_t size)
        {
            std::string bytes (size, 0);
            std::size_t got = 0;

            for (std::size_t count = 1; got < size && count > 0; got += count)
                count = receive (bytes.data() + got, size - got);

            return bytes.substr (0, got);
        }

        /** Reads on until the other side closes. */
        void waitForEnd()
        {
            char bytes[4096];

            while (receive (bytes, sizeof (bytes)) > 0)
            {
            }
        }
    };

    int port() const { return listener.port(); }
    std::unique_ptr<Socket> accept() { return std::make_unique<Socket> (*listener.accept (never), never); }

private:
    veltra::receiver::StopSignal never;
    veltra::receiver::Listener listener { "127.0.0.1", 0 };
};
