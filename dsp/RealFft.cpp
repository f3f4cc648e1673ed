// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/RealFft.h"

#include <cassert>
#include <map>
#include <mutex>
#include <new>

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

/** FFTW's planner keeps state for the whole process and takes one thread at a time; executing a plan does not need it.
    Whatever makes or destroys a plan holds this lock, and no plan is made outside of this file.

    FFTW's own remedy, fftwf_make_planner_thread_safe, leaves a hook in the library that outlives a module which is
    unloaded, and a host that then plans for itself crashes.
*/
std::unique_lock<std::mutex> lockPlanner()
{
    static const bool kept = keepLibraryLoaded();
    static_cast<void> (kept);
    return std::unique_lock (planner);
}

constexpr unsigned planFlags = FFTW_ESTIMATE | FFTW_PRESERVE_INPUT;

/** fftwf_complex is two floats, as std::complex<float> is. FFTW takes its input without const, and keeps it
    because the plans ask for that. */
fftwf_complex* asFftw (const Eigen::VectorXcf& v) noexcept
{
    return reinterpret_cast<fftwf_complex*> (const_cast<std::complex<float>*> (v.data()));
}

float* asFftw (const Eigen::VectorXf& v) noexcept { return const_cast<float*> (v.data()); }

}

void RealFft::DestroyPlan::operator() (fftwf_plan_s* plan) const noexcept
{
    const auto lock = lockPlanner();
    fftwf_destroy_plan (plan);
}

RealFft::RealFft (int size) : length (size)
{
    // A plan serves all arrays that are aligned like these, and Eigen aligns all its vectors alike.
    const Eigen::VectorXf samples (length);
    const Eigen::VectorXcf spectrum (bins());

    {
        const auto lock = lockPlanner();
        forwardPlan.reset (fftwf_plan_dft_r2c_1d (length, asFftw (samples), asFftw (spectrum), planFlags));
        inversePlan.reset (fftwf_plan_dft_c2r_1d (length, asFftw (spectrum), asFftw (samples), planFlags));
    }

    if (forwardPlan == nullptr || inversePlan == nullptr)
        throw std::bad_alloc();
}

std::shared_ptr<const RealFft> RealFft::shared (int size)
{
    constexpr int largestKept = 1 << 18;

    if (size > largestKept)
        return std::make_shared<const RealFft> (size);

    static std::mutex mutex;
    static std::map<int, std::shared_ptr<const RealFft>> kept;
    const std::lock_guard lock (mutex);
    auto& fft = kept[size];

    if (fft == nullptr)
        fft = std::make_shared<const RealFft> (size);

    return fft;
}

void RealFft::forward (const Eigen::VectorXf& samples, Eigen::VectorXcf& spectrum) const
{
    assert (samples.size() == length);
    setSize (spectrum, bins());
    fftwf_execute_dft_r2c (forwardPlan.get(), asFftw (samples), asFftw (spectrum));
}

void RealFft::inverse (const Eigen::VectorXcf& spectrum, Eigen::VectorXf& samples) const
{
    assert (spectrum.size() == bins());
    setSize (samples, length);
    fftwf_execute_dft_c2r (inversePlan.get(), asFftw (spectrum), asFftw (samples));
    samples *= static_cast<float> (1.0 / length);
}

}
