// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Sockets.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace veltra::receiver {

namespace {

[[noreturn]] void fail (const std::string& what) { throw std::system_error (platform::lastError(), what); }
bool lastErrorIsTemporary() { return platform::isTemporary (platform::lastError()); }

}

Descriptor::Descriptor (Descriptor&& other) noexcept : handle (std::exchange (other.handle, platform::kNoSocket)) {}

Descriptor& Descriptor::operator= (Descriptor&& other) noexcept
{
    if (this != &other)
    {
        close();
        handle = std::exchange (other.handle, platform::kNoSocket);
    }

    return *this;
}

Descriptor::~Descriptor() { close(); }

void Descriptor::close() noexcept
{
    if (isOpen())
        platform::closeSocket (std::exchange (handle, platform::kNoSocket));
}

StopSignal::StopSignal()
{
    const auto [reading, writing] = platform::makeSignalEnds();
    readEnd = Descriptor (reading);
    writeEnd = Descriptor (writing);
}

void StopSignal::raise() noexcept
{
    // What is sent is never read, so that all waits see it.
    if (! raised.exchange (true))
        platform::signalEnd (writeEnd.get());
}

bool StopSignal::pause (std::chrono::milliseconds duration) const
{
    const auto end = std::chrono::steady_clock::now() + duration;

    while (! isRaised())
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds> (end - std::chrono::steady_clock::now());

        if (left.count() <= 0)
            return true;

        pollfd waiting { handle(), POLLIN, 0 };
        platform::wait (&waiting, 1, static_cast<int> (std::min<std::int64_t> (left.count(), 60000)));
    }

    return false;
}

HostSocket::HostSocket (Descriptor connected, const StopSignal& stopSignal)
    : socket (std::move (connected)),
      stop (stopSignal)
{
    platform::prepareAccepted (socket.get());
    // Replies are small and sent one by one: without this each would wait for the peer's delayed ACK.
    platform::setOption (socket.get(), IPPROTO_TCP, TCP_NODELAY, 1);
}

bool HostSocket::waitFor (short events) const
{
    pollfd waiting[] = { { socket.get(), events, 0 }, { stop.handle(), POLLIN, 0 } };

    while (! stop.isRaised())
    {
        const auto ready = platform::wait (waiting, 2, -1);

        if (ready < 0 && ! lastErrorIsTemporary())
            return false;

        if (ready > 0)
            return waiting[1].revents == 0;
    }

    return false;
}

std::size_t HostSocket::receive (char* buffer, std::size_t capacity)
{
    while (waitFor (POLLIN))
    {
        const auto count = ::recv (socket.get(), buffer, static_cast<platform::ByteCount> (capacity), 0);

        if (count >= 0)
            return static_cast<std::size_t> (count);

        if (! lastErrorIsTemporary())
            return 0;
    }

    return 0;
}

bool HostSocket::send (std::string_view bytes)
{
    while (! bytes.empty())
    {
        const auto count =
            ::send (socket.get(), bytes.data(), static_cast<platform::ByteCount> (bytes.size()), platform::kNoSignal);

        if (count > 0)
            bytes.remove_prefix (static_cast<std::size_t> (count));
        else if (count < 0 && ! lastErrorIsTemporary())
            return false;
        else if (! waitFor (POLLOUT))
            return false;
    }

    return true;
}

void HostSocket::close() noexcept
{
    if (! socket.isOpen())
        return;

    // Closing a socket that holds unread bytes would send a reset instead of the end of stream.
    char rest[4096];
    ::shutdown (socket.get(), platform::kEndOfSending);

    for (int i = 0; i < 256 && ::recv (socket.get(), rest, sizeof (rest), 0) > 0; ++i)
        ;

    socket.close();
}

void HostSocket::reset() noexcept
{
    if (! socket.isOpen())
        return;

    const linger abort { 1, 0 };
    platform::setOption (socket.get(), SOL_SOCKET, SO_LINGER, abort);
    socket.close();
}

Listener::Listener (const std::string& address, std::uint16_t wantedPort)
{
    const auto where = address + ":" + std::to_string (wantedPort);
    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_port = htons (wantedPort);

    if (::inet_pton (AF_INET, address.c_str(), &name.sin_addr) != 1)
        throw std::system_error (std::make_error_code (std::errc::invalid_argument), "Cannot listen on " + where);

    socket = Descriptor (platform::openSocket (SOCK_STREAM));

    if (! socket.isOpen())
        fail ("Cannot listen on " + where);

    platform::makeNonBlocking (socket.get());
    platform::keepPort (socket.get());

    socklen_t length = sizeof (name);

    if (::bind (socket.get(), reinterpret_cast<sockaddr*> (&name), sizeof (name)) != 0
        || ::listen (socket.get(), 16) != 0
        || ::getsockname (socket.get(), reinterpret_cast<sockaddr*> (&name), &length) != 0)
        fail ("Cannot listen on " + where);

    boundPort = ntohs (name.sin_port);
}

std::optional<Descriptor> Listener::accept (const StopSignal& stop)
{
    while (! stop.isRaised())
    {
        pollfd waiting[] = { { socket.get(), POLLIN, 0 }, { stop.handle(), POLLIN, 0 } };

        if (platform::wait (waiting, 2, -1) <= 0 || waiting[1].revents != 0)
            continue;

        Descriptor accepted (::accept (socket.get(), nullptr, nullptr));

        if (accepted.isOpen())
            return accepted;

        // Out of descriptors: the connection stays in the queue and poll comes back at once. Wait a little.
        if (! lastErrorIsTemporary() && platform::lastError() != std::errc::connection_aborted)
            stop.pause (std::chrono::milliseconds (50));
    }

    return {};
}

}
