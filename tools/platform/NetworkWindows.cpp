// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Network.h"

namespace veltra::platform {

namespace {

/** Whoever links this file has sockets from its beginning to its end. */
[[maybe_unused]] const int started = [] {
    WSADATA data;
    return ::WSAStartup (MAKEWORD (2, 2), &data);
}();

std::error_code asStandardError (int error) noexcept
{
    using enum std::errc;

    switch (error)
    {
        case WSAEWOULDBLOCK: return std::make_error_code (operation_would_block);
        case WSAEINTR: return std::make_error_code (interrupted);
        case WSAEADDRINUSE: return std::make_error_code (address_in_use);
        case WSAEACCES: return std::make_error_code (address_in_use); // what exclusive use of a port answers
        case WSAEADDRNOTAVAIL: return std::make_error_code (address_not_available);
        case WSAECONNABORTED: return std::make_error_code (connection_aborted);
        case WSAECONNRESET: return std::make_error_code (connection_reset);
        case WSAECONNREFUSED: return std::make_error_code (connection_refused);
        default: return { error, std::system_category() };
    }
}

}

SocketHandle openSocket (int type) noexcept
{
    return ::WSASocketW (AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
}

void makeNonBlocking (SocketHandle socket) noexcept
{
    u_long on = 1;
    ::ioctlsocket (socket, FIONBIO, &on);
}

void prepareAccepted (SocketHandle socket) noexcept
{
    ::SetHandleInformation (reinterpret_cast<HANDLE> (socket), HANDLE_FLAG_INHERIT, 0);
    makeNonBlocking (socket);
}

void closeSocket (SocketHandle socket) noexcept { ::closesocket (socket); }

int wait (pollfd* sockets, unsigned count, int timeout_ms) noexcept { return ::WSAPoll (sockets, count, timeout_ms); }

std::error_code lastError() noexcept { return asStandardError (::WSAGetLastError()); }

bool isTemporary (const std::error_code& error) noexcept
{
    return error == std::errc::interrupted || error == std::errc::operation_would_block;
}

/** WSAPoll waits for nothing but sockets: two for datagrams, the second connected to the first. */
std::pair<SocketHandle, SocketHandle> makeSignalEnds()
{
    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    auto* const address = reinterpret_cast<sockaddr*> (&name);
    int size = sizeof (name);

    const auto readEnd = openSocket (SOCK_DGRAM), writeEnd = openSocket (SOCK_DGRAM);

    if (readEnd == kNoSocket || writeEnd == kNoSocket || ::bind (readEnd, address, size) != 0
        || ::getsockname (readEnd, address, &size) != 0 || ::connect (writeEnd, address, size) != 0)
        throw std::system_error (lastError(), "No sockets for the stop signal");

    makeNonBlocking (readEnd);
    makeNonBlocking (writeEnd);
    return { readEnd, writeEnd };
}

void signalEnd (SocketHandle end) noexcept { ::send (end, "!", 1, 0); }
// The option of the same name as elsewhere would let any other program take the port.
void keepPort (SocketHandle socket) noexcept { setOption (socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1); }

bool bindToGroup (SocketHandle socket, in_addr, unsigned short port) noexcept
{
    setOption (socket, SOL_SOCKET, SO_REUSEADDR, 1);

    // A group is no address to bind to here.
    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_port = htons (port);
    return ::bind (socket, reinterpret_cast<const sockaddr*> (&name), sizeof (name)) == 0;
}

}
