// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/GuestProcess.h"

#include <csignal>
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

namespace veltra {

int processId() noexcept { return ::getpid(); }

void keepLibraryOf (const void* function) noexcept
{
    Dl_info library {}, own {};

    if (::dladdr (function, &library) == 0 || ::dladdr (reinterpret_cast<const void*> (&processId), &own) == 0
        || library.dli_fbase == own.dli_fbase)
        return;

    if (void* const handle = ::dlopen (library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE); handle != nullptr)
        ::dlclose (handle);
}

void cancellationPoint() { ::pthread_testcancel(); }

NoCancellation::NoCancellation() noexcept { ::pthread_setcancelstate (PTHREAD_CANCEL_DISABLE, &stateBefore); }
NoCancellation::~NoCancellation() { ::pthread_setcancelstate (stateBefore, nullptr); }

namespace {

sigset_t signalsOfTheHost() noexcept
{
    sigset_t signals;
    ::sigfillset (&signals);

    for (const int fault : { SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGPROF, SIGSEGV, SIGSYS, SIGTRAP })
        ::sigdelset (&signals, fault);

    return signals;
}

}

struct HeldSignals::State
{
    sigset_t maskBefore;
};

HeldSignals::HeldSignals() : state (std::make_unique<State>())
{
    const auto signals = signalsOfTheHost();
    ::pthread_sigmask (SIG_BLOCK, &signals, &state->maskBefore);
}

HeldSignals::~HeldSignals() { ::pthread_sigmask (SIG_SETMASK, &state->maskBefore, nullptr); }

void HeldSignals::forThisThread() noexcept
{
    const auto signals = signalsOfTheHost();
    ::pthread_sigmask (SIG_BLOCK, &signals, nullptr);
}

}
