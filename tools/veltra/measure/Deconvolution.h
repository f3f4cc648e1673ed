// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::tools {

/** The impulse response between a stimulus and a capture of it, by division of their spectra in double precision.

    The stimulus needs energy at all frequencies: the sweep from close to 0 Hz up to half the sample rate has it, and
    frequencies at which it has next to none are left out. The capture should begin before the stimulus and last
    until the room has become silent.

    @param capture   what the microphone heard
    @param stimulus  what was played
    @returns         capture.size() samples: with the capture beginning d samples before the stimulus, the response
                     begins at d
    @throws          std::bad_alloc
*/
Eigen::VectorXf deconvolve (const Eigen::VectorXf& capture, const Eigen::VectorXf& stimulus);

}
