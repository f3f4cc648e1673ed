#include "protocol/SocketPlatform.h"

#if JUCE_WINDOWS
 #include <winsock2.h>
#else
 #include <cerrno>
 #include <fcntl.h>
 #include <netdb.h>
 #include <netinet/in.h>
 #include <sys/socket.h>
 #include <sys/time.h>
#endif

// The thread sanitizer crashes on the threads that the C library starts for its look-ups.
#if defined(__GLIBC__) && ! defined(__SANITIZE_THREAD__)
 #define VELTRA_BOUNDED_LOOKUP
 #include <algorithm>
 #include <memory>
 #include <mutex>
 #include <string>

 #include "common/Clock.h"
#endif

namespace veltra::ipc::platform {

#if JUCE_WINDOWS

void prepareSocket (int handle) noexcept
{
    const DWORD patience_ms = 2000;
    ::setsockopt (static_cast<SOCKET> (handle), SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*> (&patience_ms),
                  sizeof (patience_ms));
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

void shutDown (int handle) noexcept
{
    ::shutdown (static_cast<SOCKET> (handle), SD_BOTH);
}

#else

void prepareSocket (int handle) noexcept
{
   #if defined(SO_NOSIGPIPE)
    const int on = 1;
    ::setsockopt (handle, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof (on));
   #endif

    // Until the first read the socket is a blocking one, and a peer that takes nothing would hold the sender for ever.
    const timeval patience { 2, 0 };
    ::setsockopt (handle, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof (patience));

    // A program that the host starts does not inherit the connection, which would then not close with ours.
    ::fcntl (handle, F_SETFD, FD_CLOEXEC);
}

int sendBytes (int handle, const void* data, int size, Blocking blocking) noexcept
{
    int flags = blocking == Blocking::no ? MSG_DONTWAIT : 0;

   #if defined(MSG_NOSIGNAL) // elsewhere there is SO_NOSIGPIPE, see above
    flags |= MSG_NOSIGNAL;
   #endif

    ssize_t sent = 0;

    do
        sent = ::send (handle, data, static_cast<size_t> (size), flags);
    while (sent < 0 && errno == EINTR);

    return static_cast<int> (sent);
}

int receiveBytes (int handle, void* data, int size) noexcept
{
    ssize_t received = 0;

    do
        received = ::recv (handle, data, static_cast<size_t> (size), 0);
    while (received < 0 && errno == EINTR);

    return static_cast<int> (received);
}

void shutDown (int handle) noexcept
{
    ::shutdown (handle, SHUT_RDWR);
}

#endif

#if defined(VELTRA_BOUNDED_LOOKUP)

namespace {

/** One asynchronous look-up. The C library writes into it until it is done, so it must not go before. */
class Lookup
{
public:
    explicit Lookup (std::string host) : name (std::move (host))
    {
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        request.ar_name = name.c_str();
        request.ar_request = &hints;
    }

    ~Lookup()
    {
        if (request.ar_result != nullptr)
            ::freeaddrinfo (request.ar_result);
    }

    Lookup (const Lookup&) = delete;
    Lookup& operator= (const Lookup&) = delete;

    bool start()
    {
        gaicb* requests[] = { &request };
        return ::getaddrinfo_a (GAI_NOWAIT, requests, 1, nullptr) == 0;
    }

    bool isDone() { return ::gai_error (&request) != EAI_INPROGRESS; }

    /** @returns whether it came to an end in time */
    bool wait (int timeoutMs)
    {
        for (const auto deadline = steadyMilliseconds() + timeoutMs; ! isDone();)
        {
            const auto left = deadline - steadyMilliseconds();

            if (left <= 0)
                return ::gai_cancel (&request) != EAI_NOTCANCELED;

            const gaicb* const requests[] = { &request };
            const timespec slice { left / 1000, (left % 1000) * 1000000 };
            ::gai_suspend (requests, 1, &slice);
        }

        return true;
    }

    std::vector<juce::String> getAddresses() const
    {
        std::vector<juce::String> addresses;

        for (const auto* entry = request.ar_result; entry != nullptr; entry = entry->ai_next)
        {
            char text[NI_MAXHOST] = {};

            if (::getnameinfo (entry->ai_addr, entry->ai_addrlen, text, sizeof (text), nullptr, 0, NI_NUMERICHOST) == 0)
                addresses.emplace_back (text);
        }

        return addresses;
    }

private:
    const std::string name;
    addrinfo hints {};
    gaicb request {};
};

/** Look-ups that took too long, kept until the C library has let go of them. */
class AbandonedLookups
{
public:
    ~AbandonedLookups()
    {
        sweep();

        // The C library still writes into these: better a few bytes lost than freed under it.
        for (auto& lookup : lookups)
            static_cast<void> (lookup.release());
    }

    void keep (std::unique_ptr<Lookup> lookup)
    {
        const std::lock_guard guard (lock);
        sweep();
        lookups.push_back (std::move (lookup));
    }

private:
    void sweep()
    {
        std::erase_if (lookups, [] (const auto& lookup) { return lookup->isDone(); });
    }

    std::mutex lock;
    std::vector<std::unique_ptr<Lookup>> lookups;
};

bool isNumber (const juce::String& host)
{
    addrinfo hints {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* result = nullptr;

    if (::getaddrinfo (host.toRawUTF8(), nullptr, &hints, &result) != 0)
        return false;

    ::freeaddrinfo (result);
    return true;
}

}

std::vector<juce::String> resolve (const juce::String& host, int timeoutMs)
{
    if (isNumber (host))
        return { host };

    static AbandonedLookups abandoned;
    auto lookup = std::make_unique<Lookup> (host.toStdString());

    if (! lookup->start())
        return {};

    if (! lookup->wait (timeoutMs))
    {
        abandoned.keep (std::move (lookup));
        return {};
    }

    return lookup->getAddresses();
}

#else

std::vector<juce::String> resolve (const juce::String& host, int)
{
    return { host };
}

#endif

}
