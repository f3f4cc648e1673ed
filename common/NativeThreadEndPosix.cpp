// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/NativeThreadEnd.h"

#include <csignal>
#include <unistd.h>

#if defined(__APPLE__)
#include <mach/mach.h>
#include <pthread.h>
#else
#include <sys/syscall.h>
#endif

#include "common/GuestProcess.h"

namespace veltra {

namespace {

#if defined(__APPLE__)

std::uintptr_t ownThread() noexcept { return ::pthread_mach_thread_np (::pthread_self()); }

bool exists (std::uintptr_t thread) noexcept
{
    thread_basic_info_data_t information;
    mach_msg_type_number_t size = THREAD_BASIC_INFO_COUNT;
    return ::thread_info (static_cast<thread_act_t> (thread), THREAD_BASIC_INFO,
                          reinterpret_cast<thread_info_t> (&information), &size)
           == KERN_SUCCESS;
}

#else

std::uintptr_t ownThread() noexcept { return static_cast<std::uintptr_t> (::syscall (SYS_gettid)); }
bool exists (std::uintptr_t thread) noexcept { return ::syscall (SYS_tgkill, ::getpid(), thread, 0) == 0; }

#endif

}

NativeThreadEnd::~NativeThreadEnd() = default;

void NativeThreadEnd::started() noexcept
{
    HeldSignals::forThisThread();
    thread.store (ownThread());
}

void NativeThreadEnd::waitUntilGone() noexcept
{
    const auto ending = thread.exchange (0);

    for (int turns = 0; ending != 0 && turns < 10000 && exists (ending); ++turns)
        ::usleep (100);
}

void NativeThreadEnd::libraryIsBeingUnloaded() noexcept {}

}
