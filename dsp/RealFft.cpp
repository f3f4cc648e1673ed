// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/RealFft.h"

#include <cassert>
#include <map>
#include <mutex>
#include <new>

#include <fftw3.h>

#include "common/GuestProcess.h"

namespace veltra::dsp {

namespace {

/** FFTW's planner keeps state for all plans and takes one thread at a time; executing a plan does not need it. Whatever
    makes or destroys a plan holds this lock, and no plan is made outside of this file. FFTW is linked in, so nobody else
    shares the planner. */
class Planner
{
public:
    /** Frees some 170 KB, which would be lost with each load of the module. */
    ~Planner()
    {
        if (process == processId())
            fftwf_cleanup();
    }

    std::unique_lock<std::mutex> lock() { return std::unique_lock (mutex); }

    /** A process that was forked meanwhile has a copy of the plans, and of a lock that a thread which it does not have may
        hold: it leaves both alone when it ends. */
    const int process = processId();

private:
    std::mutex mutex;
};

Planner planner;

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
    if (process != processId())
        return;

    const auto lock = planner.lock();
    fftwf_destroy_plan (plan);
}

RealFft::RealFft (int size) : length (size)
{
    // A plan serves all arrays that are aligned like these, and Eigen aligns all its vectors alike.
    const Eigen::VectorXf samples (length);
    const Eigen::VectorXcf spectrum (bins());

    {
        const auto lock = planner.lock();
        const DestroyPlan destroy { processId() };
        forwardPlan = { fftwf_plan_dft_r2c_1d (length, asFftw (samples), asFftw (spectrum), planFlags), destroy };
        inversePlan = { fftwf_plan_dft_c2r_1d (length, asFftw (spectrum), asFftw (samples), planFlags), destroy };
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
