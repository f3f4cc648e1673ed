// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/NativeThreadEnd.h"

#include <windows.h>

namespace veltra {

namespace {

std::atomic<DWORD> patience_ms { 1000 };

HANDLE asHandle (std::uintptr_t thread) noexcept { return reinterpret_cast<HANDLE> (thread); }

void closeHandle (std::uintptr_t thread) noexcept
{
    if (thread != 0)
        ::CloseHandle (asHandle (thread));
}

}

NativeThreadEnd::~NativeThreadEnd() { closeHandle (thread.exchange (0)); }

void NativeThreadEnd::started() noexcept
{
    HANDLE own = nullptr;
    ::DuplicateHandle (::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), &own, SYNCHRONIZE, FALSE, 0);
    closeHandle (thread.exchange (reinterpret_cast<std::uintptr_t> (own)));
}

void NativeThreadEnd::waitUntilGone() noexcept
{
    const auto ending = thread.exchange (0);

    if (ending != 0)
        ::WaitForSingleObject (asHandle (ending), patience_ms.load());

    closeHandle (ending);
}

void NativeThreadEnd::libraryIsBeingUnloaded() noexcept { patience_ms.store (20); }

}
