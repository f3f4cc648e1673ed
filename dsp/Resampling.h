// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::dsp {

/** Resamples a whole signal by a linear-phase band limit at 0.995 of the lower of the two Nyquist frequencies
    (-3 dB), without latency: output sample 0 lines up with input sample 0. Levels stay as they are, so an impulse
    response has to be multiplied by 1 / ratio to keep its spectrum.

    What lies beyond the input is taken as silence. At ratio 1 the output equals the input.

    @param in             samples
    @param ratio          output rate divided by input rate, from 1/256 to 256; any other gives an empty signal
    @param attenuationDb  stop-band attenuation in decibels; the work needs 80, and what is built without r8brain
                          always gives 120 or more
    @returns              floor (in.size() * ratio + 0.5) samples
    @throws               std::bad_alloc, also for more than 536870911 samples

    Safe to call from several threads at once.
*/
Eigen::VectorXf resampleFloat (const Eigen::VectorXf& in, double ratio, double attenuationDb);

/** The same in double precision. */
Eigen::VectorXd resampleDouble (const Eigen::VectorXd& in, double ratio, double attenuationDb);

}
