// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/SocketPlatform.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include "protocol/BlockedSigpipe.h"

namespace veltra::ipc::platform {

namespace {

constexpr DWORD kSendPatience_ms = 2000;
constexpr int kLookAgain_ms = 100; // a wait for room to send is not ended by the end of the socket everywhere

SOCKET asSocket (int handle) noexcept { return static_cast<SOCKET> (handle); }

void setOption (int handle, int level, int option, const void* value, int size) noexcept
{
    ::setsockopt (asSocket (handle), level, option, static_cast<const char*> (value), size);
}

void makeNonBlocking (int handle) noexcept
{
    u_long on = 1;
    ::ioctlsocket (asSocket (handle), FIONBIO, &on);
}

/** @returns bytes taken, or -1; on a socket that does not block */
int sendOnce (int handle, const char* data, int size) noexcept { return ::send (asSocket (handle), data, size, 0); }

}

int openSocket (int family, int type, int protocol) noexcept
{
    constexpr DWORD flags = WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT;
    return static_cast<int> (::WSASocketW (family, type, protocol, nullptr, 0, flags));
}

void prepareSocket (int handle) noexcept
{
    // A send that waits does so below and not in the system, which reports a failure when it has taken a part.
    makeNonBlocking (handle);

    // For after JUCE has made the socket a blocking one again.
    setOption (handle, SOL_SOCKET, SO_SNDTIMEO, &kSendPatience_ms, sizeof (kSendPatience_ms));

    // A program that the host starts does not inherit the connection, which would then not close with ours.
    ::SetHandleInformation (reinterpret_cast<HANDLE> (asSocket (handle)), HANDLE_FLAG_INHERIT, 0);
}

void prepareMulticastSocket (int handle, const char* localAddress) noexcept
{
    makeNonBlocking (handle);
    ::SetHandleInformation (reinterpret_cast<HANDLE> (asSocket (handle)), HANDLE_FLAG_INHERIT, 0);

    in_addr address {};

    if (::inet_pton (AF_INET, localAddress, &address) == 1)
        setOption (handle, IPPROTO_IP, IP_MULTICAST_IF, &address, sizeof (address));
}

int sendBytes (int handle, const void* data, int size, Blocking blocking) noexcept
{
    const auto* const bytes = static_cast<const char*> (data);
    int taken = sendOnce (handle, bytes, size);

    if (blocking == Blocking::no)
        return taken;

    const auto deadline = ::GetTickCount64() + kSendPatience_ms;

    while (taken < size && ::GetTickCount64() < deadline)
    {
        if (taken < 0 && ::WSAGetLastError() != WSAEWOULDBLOCK)
            return -1;

        WSAPOLLFD writable { asSocket (handle), POLLOUT, 0 };

        if (::WSAPoll (&writable, 1, kLookAgain_ms) < 0)
            break;

        const int position = taken < 0 ? 0 : taken;
        const int more = sendOnce (handle, bytes + position, size - position);

        if (more >= 0)
            taken = position + more;
        else if (::WSAGetLastError() != WSAEWOULDBLOCK)
            break;
    }

    return taken;
}

int receiveBytes (int handle, void* data, int size) noexcept
{
    WSABUF buffer { static_cast<ULONG> (size), static_cast<char*> (data) };
    WSAOVERLAPPED overlapped {};
    overlapped.hEvent = ::WSACreateEvent();
    DWORD received = 0, flags = 0;

    // Waits also on a socket that does not block, and is the kind of wait that shutDown can end.
    const bool succeeded = ::WSARecv (asSocket (handle), &buffer, 1, &received, &flags, &overlapped, nullptr) == 0
                           || (::WSAGetLastError() == WSA_IO_PENDING
                               && ::WSAGetOverlappedResult (asSocket (handle), &overlapped, &received, TRUE, &flags));
    const int error = succeeded ? 0 : ::WSAGetLastError();
    ::WSACloseEvent (overlapped.hEvent);

    if (error == WSA_OPERATION_ABORTED || error == WSAESHUTDOWN)
        return 0;

    return succeeded ? static_cast<int> (received) : -1;
}

void shutDown (int handle) noexcept
{
    // The first makes later waits return, the second those that have begun: a peer that has been switched off never
    // answers the first.
    ::shutdown (asSocket (handle), SD_BOTH);
    ::CancelIoEx (reinterpret_cast<HANDLE> (asSocket (handle)), nullptr);
}

std::vector<AdapterAddress> adapterAddresses()
{
    std::vector<AdapterAddress> result;

    // JUCE asks for one address an adapter there, so that each may count as an adapter of its own.
    for (const auto& address : juce::IPAddress::getAllAddresses (false))
        result.push_back ({ address.toString(), address.toString() });

    return result;
}

struct BlockedSigpipe::State
{
};

BlockedSigpipe::BlockedSigpipe() = default;
BlockedSigpipe::~BlockedSigpipe() = default;

}
