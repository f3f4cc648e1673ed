// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/HostLookup.h"

// The thread sanitizer crashes on the threads that the C library starts for its look-ups.
#if __has_include(<gnu/libc-version.h>) && ! defined(__SANITIZE_THREAD__)

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>

#include <netdb.h>

namespace veltra {

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
bool waitForEnd (gaicb& control, std::chrono::steady_clock::time_point deadline,
                 const std::function<bool()>& shouldStop)
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

/** Look-ups that were given up. The C library still writes its results into them, and only then can they be
    freed. */
class AbandonedRequests
{
public:
    static constexpr std::size_t kMaximum = 16;

    ~AbandonedRequests()
    {
        freeFinished();

        for (auto& request : requests)
            request.release(); // when the module goes before the name server answers
    }

    /** @returns false while too many look-ups hang to begin another */
    bool roomForMore()
    {
        const std::lock_guard guard (mutex);
        freeFinished();
        return requests.size() < kMaximum;
    }

    void add (std::unique_ptr<Request> request)
    {
        const std::lock_guard guard (mutex);
        requests.push_back (std::move (request));
    }

private:
    void freeFinished()
    {
        std::erase_if (requests,
                       [] (const auto& request) { return ::gai_error (&request->control) != EAI_INPROGRESS; });
    }

    std::mutex mutex;
    std::vector<std::unique_ptr<Request>> requests;
};

AbandonedRequests& abandonedRequests()
{
    static AbandonedRequests requests;
    return requests;
}

bool isNumber (const std::string& host)
{
    addrinfo hints {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* result = nullptr;

    if (::getaddrinfo (host.c_str(), nullptr, &hints, &result) != 0)
        return false;

    ::freeaddrinfo (result);
    return true;
}

std::string numericAddress (const addrinfo& info)
{
    char text[NI_MAXHOST] {};

    return ::getnameinfo (info.ai_addr, info.ai_addrlen, text, sizeof (text), nullptr, 0, NI_NUMERICHOST) == 0 ? text
                                                                                                               : "";
}

}

std::vector<std::string> lookUpHost (const std::string& name, std::chrono::steady_clock::time_point deadline,
                                     const std::function<bool()>& shouldStop)
{
    if (isNumber (name))
        return { name };

    auto request = std::make_unique<Request> (name);
    gaicb* list[] { &request->control };

    if (! abandonedRequests().roomForMore() || ::getaddrinfo_a (GAI_NOWAIT, list, 1, nullptr) != 0)
        return {};

    if (! waitForEnd (request->control, deadline, shouldStop) && ::gai_cancel (&request->control) != EAI_CANCELED
        && ::gai_error (&request->control) == EAI_INPROGRESS)
    {
        abandonedRequests().add (std::move (request));
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

namespace veltra {

std::vector<std::string> lookUpHost (const std::string& name, std::chrono::steady_clock::time_point,
                                     const std::function<bool()>&)
{
    return { name };
}

}

#endif
