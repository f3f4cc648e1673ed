// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <system_error>
#include <utility>

#if defined(_WIN32)
#include <winsock2.h>

#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#endif

/** @file
    The system's sockets, whose calls are the same on all systems, and what is not the same in them. Any thread.
*/

namespace veltra::platform {

#if defined(_WIN32)
using SocketHandle = SOCKET;
using ByteCount = int; ///< of recv and send
inline constexpr SocketHandle kNoSocket = INVALID_SOCKET;
inline constexpr int kEndOfSending = SD_SEND; ///< for shutdown
#else
using SocketHandle = int;
using ByteCount = std::size_t;
inline constexpr SocketHandle kNoSocket = -1;
inline constexpr int kEndOfSending = SHUT_WR;
#endif

#if defined(MSG_NOSIGNAL)
inline constexpr int kNoSignal = MSG_NOSIGNAL; ///< for send: a peer that has gone raises no signal
#else
inline constexpr int kNoSignal = 0; // openSocket and prepareAccepted have seen to it
#endif

/** @param type  SOCK_STREAM or SOCK_DGRAM
    @returns     a socket that waits, and is not handed on to programs that are started; kNoSocket on failure */
SocketHandle openSocket (int type) noexcept;

void makeNonBlocking (SocketHandle socket) noexcept;

/** Once for each socket that accept has returned: like those of openSocket, and not blocking. */
void prepareAccepted (SocketHandle socket) noexcept;

void closeSocket (SocketHandle socket) noexcept;

/** As setsockopt, with any kind of value. @returns whether the system took it */
template <typename Value>
bool setOption (SocketHandle socket, int level, int option, const Value& value) noexcept
{
    return ::setsockopt (socket, level, option, reinterpret_cast<const char*> (&value), sizeof (value)) == 0;
}

/** poll of the system. @returns how many are ready; -1 on failure or after a signal */
int wait (pollfd* sockets, unsigned count, int timeout_ms) noexcept;

/** Why the last call for a socket failed. */
std::error_code lastError() noexcept;

/** Whether a call that failed for that reason may be tried again later. */
bool isTemporary (const std::error_code& error) noexcept;

/** Two ends, neither of them blocking: after signalEnd (second) the first can be read, for ever.
    @throws std::system_error */
std::pair<SocketHandle, SocketHandle> makeSignalEnds();
void signalEnd (SocketHandle end) noexcept;
/** Before bind, for a server that is started again: it gets its port although old connections are not quite closed, and
    no other program can take it away. */
void keepPort (SocketHandle socket) noexcept;

/** Binds to a multicast group's port, which other programs may share, and joins nothing yet. @returns false on failure */
bool bindToGroup (SocketHandle socket, in_addr group, unsigned short port) noexcept;

}
