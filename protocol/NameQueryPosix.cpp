// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/NameQuery.h"

#include <netdb.h>
#include <sys/socket.h>

// The thread sanitizer crashes on the threads that glibc starts for its look-ups.
#if __has_include(<gnu/libc-version.h>) && ! defined(__SANITIZE_THREAD__)
#define VELTRA_GLIBC_LOOKUPS 1
#else
#include <condition_variable>
#include <dlfcn.h>
#include <mutex>
#include <thread>
#endif

namespace veltra {

namespace {

std::vector<std::string> textsOf (const addrinfo* list)
{
    std::vector<std::string> texts;

    for (const auto* info = list; info != nullptr; info = info->ai_next)
        if (char text[NI_MAXHOST] {};
            ::getnameinfo (info->ai_addr, info->ai_addrlen, text, sizeof (text), nullptr, 0, NI_NUMERICHOST) == 0)
            texts.emplace_back (text);

    return texts;
}

}

bool NameQuery::isNumber (const std::string& host)
{
    addrinfo hints {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* result = nullptr;

    if (::getaddrinfo (host.c_str(), nullptr, &hints, &result) != 0)
        return false;

    ::freeaddrinfo (result);
    return true;
}

#if defined(VELTRA_GLIBC_LOOKUPS)

/** What the C library reads and writes while it looks a name up. */
struct NameQuery::State
{
    explicit State (const std::string& nameToLookUp) : name (nameToLookUp)
    {
        hints.ai_socktype = SOCK_STREAM;
        control.ar_name = name.c_str();
        control.ar_request = &hints;
    }

    ~State()
    {
        if (control.ar_result != nullptr)
            ::freeaddrinfo (control.ar_result);
    }

    State (const State&) = delete;
    State& operator= (const State&) = delete;

    std::string name;
    addrinfo hints {};
    gaicb control {};
    bool begun = false;
};

NameQuery::NameQuery (const std::string& name) : state (std::make_unique<State> (name))
{
    gaicb* list[] { &state->control };
    state->begun = ::getaddrinfo_a (GAI_NOWAIT, list, 1, nullptr) == 0;
}

NameQuery::~NameQuery() = default;

bool NameQuery::waitForEnd (std::chrono::nanoseconds patience)
{
    const auto hasEnded = [this] { return ! state->begun || ::gai_error (&state->control) != EAI_INPROGRESS; };

    if (hasEnded() || patience.count() <= 0)
        return hasEnded();

    const auto seconds = std::chrono::floor<std::chrono::seconds> (patience);
    const timespec slice { static_cast<time_t> (seconds.count()), static_cast<long> ((patience - seconds).count()) };
    const gaicb* const list[] { &state->control };
    ::gai_suspend (list, 1, &slice);
    return hasEnded();
}

void NameQuery::cancel() noexcept { ::gai_cancel (&state->control); }

std::vector<std::string> NameQuery::addresses() const { return textsOf (state->control.ar_result); }

#else

/** Shared with a thread of ours, since the C library offers none of its own. */
struct Answer
{
    std::mutex mutex;
    std::condition_variable changed;
    bool complete = false;
    std::vector<std::string> addresses;
};

struct NameQuery::State
{
    std::shared_ptr<Answer> answer = std::make_shared<Answer>();
    std::thread thread;
};

NameQuery::NameQuery (const std::string& name) : state (std::make_unique<State>())
{
    state->thread = std::thread ([name, answer = state->answer] {
        addrinfo hints {};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* result = nullptr;
        std::vector<std::string> texts;

        if (::getaddrinfo (name.c_str(), nullptr, &hints, &result) == 0)
        {
            texts = textsOf (result);
            ::freeaddrinfo (result);
        }

        const std::lock_guard guard (answer->mutex);
        answer->addresses = std::move (texts);
        answer->complete = true;
        answer->changed.notify_all();
    });
}

NameQuery::~NameQuery()
{
    if (state->thread.joinable())
        state->thread.join();
}

bool NameQuery::waitForEnd (std::chrono::nanoseconds patience)
{
    std::unique_lock guard (state->answer->mutex);
    return state->answer->changed.wait_for (guard, patience, [this] { return state->answer->complete; });
}

void NameQuery::cancel() noexcept
{
    // The thread will go on in this library's code, which therefore has to stay in memory.
    Dl_info own {};

    if (::dladdr (reinterpret_cast<const void*> (&textsOf), &own) != 0)
        ::dlopen (own.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

std::vector<std::string> NameQuery::addresses() const { return state->answer->addresses; }

#endif

}
