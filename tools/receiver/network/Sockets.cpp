// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Sockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace veltra::receiver {

namespace {

[[noreturn]] void fail (const std::string& what) { throw std::system_error (errno, std::generic_category(), what); }

void makeNonBlocking (int fd)
{
    ::fcntl (fd, F_SETFL, ::fcntl (fd, F_GETFL) | O_NONBLOCK);
    ::fcntl (fd, F_SETFD, FD_CLOEXEC);
}

bool isTemporary (int error) { return error == EINTR || error == EAGAIN || error == EWOULDBLOCK; }

}

Descriptor::Descriptor (Descriptor&& other) noexcept : fd (std::exchange (other.fd, -1)) {}

Descriptor& Descriptor::operator= (Descriptor&& other) noexcept
{
    if (this != &other)
    {
        close();
        fd = std::exchange (other.fd, -1);
    }

    return *this;
}

Descriptor::~Descriptor() { close(); }

void Descriptor::close() noexcept
{
    if (isOpen())
        ::close (std::exchange (fd, -1));
}

StopSignal::StopSignal()
{
    int ends[2];

    if (::pipe (ends) != 0)
        fail ("No pipe for the stop signal");

    readEnd = Descriptor (ends[0]);
    writeEnd = Descriptor (ends[1]);
    makeNonBlocking (ends[0]);
    makeNonBlocking (ends[1]);
}

void StopSignal::raise() noexcept
{
    // The byte is never read, so that the pipe stays readable for all waits.
    if (! raised.exchange (true)) [[maybe_unused]]
        const auto written = ::write (writeEnd.get(), "!", 1);
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
        ::poll (&waiting, 1, static_cast<int> (std::min<std::int64_t> (left.count(), 60000)));
    }

    return false;
}

HostSocket::HostSocket (Descriptor connected, const StopSignal& stopSignal)
    : socket (std::move (connected)),
      stop (stopSignal)
{
    makeNonBlocking (socket.get());
    // Replies are small and sent one by one: without this each would wait for the peer's delayed ACK.
    const int on = 1;
    ::setsockopt (socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof (on));
}

bool HostSocket::waitFor (short events) const
{
    pollfd waiting[] = { { socket.get(), events, 0 }, { stop.handle(), POLLIN, 0 } };

    while (! stop.isRaised())
    {
        const auto ready = ::poll (waiting, 2, -1);

        if (ready < 0 && errno != EINTR)
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
        const auto count = ::recv (socket.get(), buffer, capacity, 0);

        if (count >= 0)
            return static_cast<std::size_t> (count);

        if (! isTemporary (errno))
            return 0;
    }

    return 0;
}

bool HostSocket::send (std::string_view bytes)
{
    while (! bytes.empty())
    {
        const auto count = ::send (socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);

        if (count > 0)
            bytes.remove_prefix (static_cast<std::size_t> (count));
        else if (count < 0 && ! isTemporary (errno))
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
    ::shutdown (socket.get(), SHUT_WR);

    for (int i = 0; i < 256 && ::recv (socket.get(), rest, sizeof (rest), MSG_DONTWAIT) > 0; ++i)
        ;

    socket.close();
}

void HostSocket::reset() noexcept
{
    if (! socket.isOpen())
        return;

    const linger abort { 1, 0 };
    ::setsockopt (socket.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof (abort));
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

    socket = Descriptor (::socket (AF_INET, SOCK_STREAM, 0));

    if (! socket.isOpen())
        fail ("Cannot listen on " + where);

    makeNonBlocking (socket.get());

    // A restarted receiver gets its port even if old connections are not quite closed.
    const int on = 1;
    ::setsockopt (socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof (on));

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

        if (::poll (waiting, 2, -1) <= 0 || waiting[1].revents != 0)
            continue;

        Descriptor accepted (::accept (socket.get(), nullptr, nullptr));

        if (accepted.isOpen())
            return accepted;

        // Out of descriptors: the connection stays in the queue and poll comes back at once. Wait a little.
        if (! isTemporary (errno) && errno != ECONNABORTED)
            stop.pause (std::chrono::milliseconds (50));
    }

    return {};
}

}
