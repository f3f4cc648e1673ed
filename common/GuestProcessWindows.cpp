// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/GuestProcess.h"

#include <process.h>

namespace veltra {

int processId() noexcept { return ::_getpid(); }

void keepLibraryOf (const void*) noexcept {} // log4cplus is linked into the module

void cancellationPoint() {}

NoCancellation::NoCancellation() noexcept = default;
NoCancellation::~NoCancellation() = default;

struct HeldSignals::State
{
};

HeldSignals::HeldSignals() = default;
HeldSignals::~HeldSignals() = default;
void HeldSignals::forThisThread() noexcept {}

}
