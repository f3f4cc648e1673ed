// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <mutex>

namespace veltra::dsp {

/** FFTW's planner keeps state for the whole process and takes one thread at a time; executing a plan does not
    need it. Everything here that makes or destroys a plan holds this lock, and no plan is made elsewhere.

    FFTW's own remedy, fftwf_make_planner_thread_safe, leaves a hook in the library that outlives a module
    which is unloaded, and a host that then plans for itself crashes.
*/
std::unique_lock<std::mutex> lockFftPlanner();

}
