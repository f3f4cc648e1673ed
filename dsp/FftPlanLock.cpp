// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/FftPlanLock.h"

#include <fftw3.h>

#if defined(__unix__) || defined(__APPLE__)
#include <dlfcn.h>
#endif

namespace veltra::dsp {

namespace {

std::mutex planner;

/** Keeps FFTW's shared library in the process when the module that brought it in is unloaded. Its planner holds some
    170 KB that would be lost with each load of the module. Freeing them instead, by fftwf_cleanup, would void the
    plans of a host that uses FFTW as well.
    @returns true, for a static variable to do it once */
bool keepLibraryLoaded() noexcept
{
#if defined(__unix__) || defined(__APPLE__)
    Dl_info fftw {}, self {};

    // FFTW linked into the module goes with the module, which has to stay removable.
    if (dladdr (reinterpret_cast<void*> (&fftwf_execute), &fftw) != 0 && dladdr (&planner, &self) != 0
        && fftw.dli_fbase != self.dli_fbase)
        if (void* const library = dlopen (fftw.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE))
            dlclose (library);
#endif
    return true;
}

}

std::unique_lock<std::mutex> lockFftPlanner()
{
    static const bool kept = keepLibraryLoaded();
    static_cast<void> (kept);
    return std::unique_lock (planner);
}

}
