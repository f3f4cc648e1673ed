// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/NameQuery.h"

#include <juce_core/juce_core.h>

#include <winsock2.h>
#include <ws2tcpip.h>

namespace veltra {

namespace {

/** Once for each load of the module and never cleaned up: a look-up that was given up still needs the sockets. */
bool socketsAreReady()
{
    static const bool ready = [] {
        WSADATA data;
        return ::WSAStartup (MAKEWORD (2, 2), &data) == 0;
    }();
    return ready;
}

}

bool NameQuery::isNumber (const std::string& host)
{
    addrinfo hints {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* result = nullptr;

    if (! socketsAreReady() || ::getaddrinfo (host.c_str(), nullptr, &hints, &result) != 0)
        return false;

    ::freeaddrinfo (result);
    return true;
}

/** What Windows reads and writes while it looks a name up. */
struct NameQuery::State
{
    explicit State (const std::string& nameToLookUp) : name (nameToLookUp)
    {
        hints.ai_socktype = SOCK_STREAM;
        overlapped.hEvent = ::CreateEventW (nullptr, TRUE, FALSE, nullptr);
    }

    ~State()
    {
        if (result != nullptr)
            ::FreeAddrInfoExW (result);

        ::CloseHandle (overlapped.hEvent);
    }

    State (const State&) = delete;
    State& operator= (const State&) = delete;

    const juce::String name;
    ADDRINFOEXW hints {};
    ADDRINFOEXW* result = nullptr;
    OVERLAPPED overlapped {};
    HANDLE query = nullptr;
};

NameQuery::NameQuery (const std::string& name) : state (std::make_unique<State> (name))
{
    if (! socketsAreReady()
        || ::GetAddrInfoExW (state->name.toWideCharPointer(), nullptr, NS_ALL, nullptr, &state->hints, &state->result,
                             nullptr, &state->overlapped, nullptr, &state->query)
               != WSA_IO_PENDING)
        ::SetEvent (state->overlapped.hEvent);
}

NameQuery::~NameQuery() = default;

bool NameQuery::waitForEnd (std::chrono::nanoseconds patience)
{
    const auto patience_ms = std::chrono::ceil<std::chrono::milliseconds> (patience).count();
    return ::WaitForSingleObject (state->overlapped.hEvent, static_cast<DWORD> (patience_ms)) == WAIT_OBJECT_0;
}

void NameQuery::cancel() noexcept
{
    // MinGW's headers do not know it.
    using Cancel = INT (WSAAPI*) (HANDLE*);
    const auto function = ::GetProcAddress (::GetModuleHandleW (L"ws2_32.dll"), "GetAddrInfoExCancel");

    if (state->query != nullptr && function != nullptr
        && reinterpret_cast<Cancel> (reinterpret_cast<void*> (function)) (&state->query) == NO_ERROR)
        ::WaitForSingleObject (state->overlapped.hEvent, 100);
}

std::vector<std::string> NameQuery::addresses() const
{
    std::vector<std::string> texts;

    for (const auto* info = state->result; info != nullptr;
         info = reinterpret_cast<const ADDRINFOEXW*> (info->ai_next)) // of an undefined type in MinGW's headers
        if (char text[NI_MAXHOST] {}; ::getnameinfo (info->ai_addr, static_cast<socklen_t> (info->ai_addrlen), text,
                                                     sizeof (text), nullptr, 0, NI_NUMERICHOST)
                                      == 0)
            texts.emplace_back (text);

    return texts;
}

}
