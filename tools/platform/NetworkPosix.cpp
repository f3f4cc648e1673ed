// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Network.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace veltra::platform {

namespace {

/** What Linux sets when it makes a socket. */
void prepare (SocketHandle socket) noexcept
{
    ::fcntl (socket, F_SETFD, FD_CLOEXEC);

#if defined(SO_NOSIGPIPE)
    setOption (socket, SOL_SOCKET, SO_NOSIGPIPE, 1);
#endif
}

}

SocketHandle openSocket (int type) noexcept
{
#if defined(SOCK_CLOEXEC)
    return ::socket (AF_INET, type | SOCK_CLOEXEC, 0);
#else
    const auto socket = ::socket (AF_INET, type, 0);
    prepare (socket);
    return socket;
#endif
}

void makeNonBlocking (SocketHandle socket) noexcept
{
    ::fcntl (socket, F_SETFL, ::fcntl (socket, F_GETFL) | O_NONBLOCK);
}

void prepareAccepted (SocketHandle socket) noexcept
{
    prepare (socket);
    makeNonBlocking (socket);
}

void closeSocket (SocketHandle socket) noexcept { ::close (socket); }

int wait (pollfd* sockets, unsigned count, int timeout_ms) noexcept { return ::poll (sockets, count, timeout_ms); }

std::error_code lastError() noexcept { return { errno, std::generic_category() }; }

bool isTemporary (const std::error_code& error) noexcept
{
    return error == std::errc::interrupted || error == std::errc::resource_unavailable_try_again
           || error == std::errc::operation_would_block;
}

std::pair<SocketHandle, SocketHandle> makeSignalEnds()
{
    int ends[2];

    if (::pipe (ends) != 0)
        throw std::system_error (lastError(), "No pipe for the stop signal");

    for (const int end : ends)
    {
        ::fcntl (end, F_SETFD, FD_CLOEXEC);
        makeNonBlocking (end);
    }

    return { ends[0], ends[1] };
}

void signalEnd (SocketHandle end) noexcept { [[maybe_unused]] const auto written = ::write (end, "!", 1); }

void keepPort (SocketHandle socket) noexcept { setOption (socket, SOL_SOCKET, SO_REUSEADDR, 1); }

bool bindToGroup (SocketHandle socket, in_addr group, unsigned short port) noexcept
{
    setOption (socket, SOL_SOCKET, SO_REUSEADDR, 1);

#if defined(IP_MULTICAST_ALL)
    // Only the interfaces that this socket joins, not those that other programs have joined.
    setOption (socket, IPPROTO_IP, IP_MULTICAST_ALL, 0);
#elif defined(SO_REUSEPORT)
    setOption (socket, SOL_SOCKET, SO_REUSEPORT, 1);
#endif

    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_port = htons (port);
    name.sin_addr = group;
    return ::bind (socket, reinterpret_cast<const sockaddr*> (&name), sizeof (name)) == 0;
}

}
