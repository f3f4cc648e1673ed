// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/SocketPlatform.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include "protocol/BlockedSigpipe.h"

namespace veltra::ipc::platform {

void prepareSocket (int handle) noexcept
{
    const DWORD patience_ms = 2000;
    ::setsockopt (static_cast<SOCKET> (handle), SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*> (&patience_ms),
                  sizeof (patience_ms));
}

void prepareMulticastSocket (int handle, const char* localAddress) noexcept
{
    u_long on = 1;
    ::ioctlsocket (static_cast<SOCKET> (handle), FIONBIO, &on);

    in_addr address {};

    if (::inet_pton (AF_INET, localAddress, &address) == 1)
        ::setsockopt (static_cast<SOCKET> (handle), IPPROTO_IP, IP_MULTICAST_IF,
                      reinterpret_cast<const char*> (&address), sizeof (address));
}

int sendBytes (int handle, const void* data, int size, Blocking blocking) noexcept
{
    WSAPOLLFD writable { static_cast<SOCKET> (handle), POLLOUT, 0 };

    if (blocking == Blocking::no && ::WSAPoll (&writable, 1, 0) <= 0)
        return -1;

    return ::send (static_cast<SOCKET> (handle), static_cast<const char*> (data), size, 0);
}

int receiveBytes (int handle, void* data, int size) noexcept
{
    return ::recv (static_cast<SOCKET> (handle), static_cast<char*> (data), size, 0);
}

void shutDown (int handle) noexcept { ::shutdown (static_cast<SOCKET> (handle), SD_BOTH); }

struct BlockedSigpipe::State
{
};

BlockedSigpipe::BlockedSigpipe() = default;
BlockedSigpipe::~BlockedSigpipe() = default;

}
