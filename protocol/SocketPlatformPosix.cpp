// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/SocketPlatform.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "common/GuestProcess.h"
#include "common/Log.h"
#include "protocol/BlockedSigpipe.h"

namespace veltra::ipc::platform {

namespace {

constexpr std::chrono::seconds kSendPatience { 2 };

}

int openSocket (int family, int type, int protocol) noexcept
{
#if defined(SOCK_CLOEXEC)
    return ::socket (family, type | SOCK_CLOEXEC, protocol);
#else
    const int handle = ::socket (family, type, protocol);
    ::fcntl (handle, F_SETFD, FD_CLOEXEC);
    return handle;
#endif
}

void prepareSocket (int handle) noexcept
{
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    ::setsockopt (handle, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof (on));
#endif

    // Until the first read the socket is a blocking one, and a peer that takes nothing would hold the sender for ever.
    const timeval patience { kSendPatience.count(), 0 };
    ::setsockopt (handle, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof (patience));

    // A program that the host starts does not inherit the connection, which would then not close with ours.
    ::fcntl (handle, F_SETFD, FD_CLOEXEC);
}

void prepareMulticastSocket (int handle, const char* localAddress) noexcept
{
    ::fcntl (handle, F_SETFL, ::fcntl (handle, F_GETFL) | O_NONBLOCK);

    // Linux takes the interface that has the socket's own address by itself; other systems have to be given it.
    in_addr address {};

    if (::inet_pton (AF_INET, localAddress, &address) == 1)
        ::setsockopt (handle, IPPROTO_IP, IP_MULTICAST_IF, &address, sizeof (address));
}

int sendBytes (int handle, const void* data, int size, Blocking blocking) noexcept
{
    int flags = blocking == Blocking::no ? MSG_DONTWAIT : 0;

#if defined(MSG_NOSIGNAL) // elsewhere there is SO_NOSIGPIPE, see above
    flags |= MSG_NOSIGNAL;
#endif

    const NoCancellation untilItIsSent;
    const auto* const bytes = static_cast<const char*> (data);
    const auto deadline = std::chrono::steady_clock::now() + kSendPatience;
    int taken = 0;

    // A signal ends a send that waits, before the first byte or behind some of them.
    for (;;)
    {
        const auto sent = ::send (handle, bytes + taken, static_cast<size_t> (size - taken), flags);
        const bool isInterrupted = sent < 0 && errno == EINTR;
        taken += static_cast<int> (std::max<ssize_t> (sent, 0));
        const bool isPart = sent > 0 && taken < size && blocking == Blocking::yes;

        if ((! isInterrupted && ! isPart) || std::chrono::steady_clock::now() >= deadline)
            return taken > 0 ? taken : static_cast<int> (sent);
    }
}

int receiveBytes (int handle, void* data, int size) noexcept
{
    ssize_t received = 0;

    do
        received = ::recv (handle, data, static_cast<size_t> (size), 0);

    while (received < 0 && errno == EINTR);

    return static_cast<int> (received);
}

void shutDown (int handle) noexcept { ::shutdown (handle, SHUT_RDWR); }

std::vector<AdapterAddress> adapterAddresses()
{
    ::ifaddrs* list = nullptr;

    if (::getifaddrs (&list) != 0)
    {
        VELTRA_LOG (WARN, "Listing the network adapters failed: " << std::strerror (errno));
        return {};
    }

    std::vector<AdapterAddress> result;

    for (const auto* entry = list; entry != nullptr; entry = entry->ifa_next)
    {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;

        // Aliases such as eth0:1 are addresses of the adapter eth0.
        const auto adapter = juce::String::fromUTF8 (entry->ifa_name).upToFirstOccurrenceOf (":", false, false);
        char text[INET_ADDRSTRLEN] {};
        ::inet_ntop (AF_INET, &reinterpret_cast<const ::sockaddr_in*> (entry->ifa_addr)->sin_addr, text, sizeof (text));
        result.push_back ({ adapter, text });
    }

    ::freeifaddrs (list);
    return result;
}

struct BlockedSigpipe::State
{
    sigset_t pipeSignal, maskBefore;
    bool wasPending = isPending();

    static bool isPending()
    {
        sigset_t pending;
        return ::sigpending (&pending) == 0 && ::sigismember (&pending, SIGPIPE) == 1;
    }
};

BlockedSigpipe::BlockedSigpipe() : state (std::make_unique<State>())
{
    ::sigemptyset (&state->pipeSignal);
    ::sigaddset (&state->pipeSignal, SIGPIPE);
    ::pthread_sigmask (SIG_BLOCK, &state->pipeSignal, &state->maskBefore);
}

BlockedSigpipe::~BlockedSigpipe()
{
    if (const timespec now {}; ! state->wasPending && State::isPending())
        ::sigtimedwait (&state->pipeSignal, nullptr, &now);

    ::pthread_sigmask (SIG_SETMASK, &state->maskBefore, nullptr);
}

}
