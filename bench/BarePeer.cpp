// SPDX-License-Identifier: GPL-3.0-or-later
#include "bench/BarePeer.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/Placement.h"
#include "common/BigEndian.h"

namespace veltra::bench {

namespace {

constexpr std::size_t kHeaderSize = 3 + 4 + 4 + 4;

bool receiveAll (int handle, char* data, std::size_t size)
{
    return size == 0 || ::recv (handle, data, size, MSG_WAITALL) == static_cast<ssize_t> (size);
}

bool sendAll (int handle, const std::string& bytes)
{
    return ::send (handle, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t> (bytes.size());
}

void doNotDelay (int handle)
{
    const int on = 1;
    ::setsockopt (handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof (on));
}

sockaddr_in loopback (int port)
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    address.sin_port = htons (static_cast<std::uint16_t> (port));
    return address;
}

std::size_t bodySize (const std::array<char, kHeaderSize>& header) { return getBigEndian (header.data() + 3); }

}

BarePeer::BarePeer (std::string answerBytes, int processorOfThread)
    : answer (std::move (answerBytes)),
      processor (processorOfThread),
      listener (::socket (AF_INET, SOCK_STREAM, 0))
{
    auto address = loopback (0);
    socklen_t size = sizeof (address);

    if (::bind (listener, reinterpret_cast<sockaddr*> (&address), size) != 0 || ::listen (listener, 4) != 0
        || ::getsockname (listener, reinterpret_cast<sockaddr*> (&address), &size) != 0)
        throw std::runtime_error ("no loopback port for the benchmark's peer");

    boundPort = ntohs (address.sin_port);
    thread = std::thread ([this] { serve(); });
}

BarePeer::~BarePeer()
{
    ::shutdown (listener, SHUT_RDWR); // ends the accept
    thread.join();
    ::close (listener);
}

void BarePeer::serve() const
{
    std::optional<OnProcessor> placement;

    if (processor >= 0)
        placement.emplace (processor);

    std::vector<char> body;

    for (int handle = ::accept (listener, nullptr, nullptr); handle >= 0;
         handle = ::accept (listener, nullptr, nullptr))
    {
        doNotDelay (handle);
        std::array<char, kHeaderSize> header {};

        while (receiveAll (handle, header.data(), header.size()))
        {
            body.resize (bodySize (header));

            if (! receiveAll (handle, body.data(), body.size()) || ! sendAll (handle, answer))
                break;
        }

        ::close (handle);
    }
}

BareClient::BareClient (int port) : handle (::socket (AF_INET, SOCK_STREAM, 0))
{
    const auto address = loopback (port);

    if (::connect (handle, reinterpret_cast<const sockaddr*> (&address), sizeof (address)) != 0)
        throw std::runtime_error ("the benchmark's peer does not answer");

    doNotDelay (handle);
}

BareClient::~BareClient() { ::close (handle); }

bool BareClient::exchange (const std::string& envelope, std::size_t answerSize)
{
    bool present = sendAll (handle, envelope);

    for (std::size_t size = 0; present && answerSize > 0; answerSize -= size)
    {
        size = std::min (answerSize, answer.size());
        present = receiveAll (handle, answer.data(), size);
    }

    return present;
}

}
