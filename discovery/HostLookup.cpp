#include "discovery/HostLookup.h"

#if __has_include(<gnu/libc-version.h>)

#include <algorithm>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>

namespace upnp {

namespace {

/** What the C library reads and writes while it looks a name up; it must outlive that. */
struct Request
{
    explicit Request (const std::string& nameToLookUp) : name (nameToLookUp)
    {
        hints.ai_socktype = SOCK_STREAM;
        control.ar_name = name.c_str();
        control.ar_request = &hints;
    }

    ~Request()
    {
        if (control.ar_result != nullptr)
            ::freeaddrinfo (control.ar_result);
    }

    Request (const Request&) = delete;
    Request& operator= (const Request&) = delete;

    std::string name;
    addrinfo hints {};
    gaicb control {};
};

/** Waits for the end of a look-up or the deadline. @returns whether it has ended */
bool waitForEnd (gaicb& control, std::chrono::steady_clock::time_point deadline, const std::function<bool()>& shouldStop)
{
    using namespace std::chrono;
    const gaicb* const list[] { &control };

    while (::gai_error (&control) == EAI_INPROGRESS)
    {
        const auto left = deadline - steady_clock::now();

        if (left <= left.zero() || shouldStop())
            return false;

        const timespec slice { 0, static_cast<long> (std::min<nanoseconds> (left, milliseconds (50)).count()) };
        ::gai_suspend (list, 1, &slice);
    }

    return true;
}

std::string numericAddress (const addrinfo& info)
{
    char text[NI_MAXHOST] {};

    return ::getnameinfo (info.ai_addr, info.ai_addrlen, text, sizeof (text), nullptr, 0, NI_NUMERICHOST) == 0 ? text : "";
}

}

std::vector<std::string> lookUpHost (const std::string& name, std::chrono::steady_clock::time_point deadline,
                                     const std::function<bool()>& shouldStop)
{
    auto request = std::make_unique<Request> (name);
    gaicb* list[] { &request->control };

    if (::getaddrinfo_a (GAI_NOWAIT, list, 1, nullptr) != 0)
        return {};

    if (! waitForEnd (request->control, deadline, shouldStop) && ::gai_cancel (&request->control) != EAI_CANCELED
          && ::gai_error (&request->control) == EAI_INPROGRESS)
    {
        // The helper thread is at it and will write its result there one day: a few hundred bytes for each
        // look-up that hangs, which is the price for not hanging with it.
        request.release();
        return {};
    }

    std::vector<std::string> addresses;

    for (auto* info = request->control.ar_result; info != nullptr; info = info->ai_next)
        if (auto text = numericAddress (*info); ! text.empty())
            addresses.push_back (std::move (text));

    return addresses;
}

}

#else

namespace upnp {

std::vector<std::string> lookUpHost (const std::string&, std::chrono::steady_clock::time_point, const std::function<bool()>&)
{
    return {};
}

}

#endif
