// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::dsp {

/** The response of a magnitude that has its energy as early as any can: by folding the real cepstrum, A. V. Oppenheim,
    R. W. Schafer, "Discrete-Time Signal Processing", chapter "Cepstrum analysis and homomorphic deconvolution".

    @param magnitude  linear, above 0, at 2^k + 1 equally spaced frequencies from 0 Hz to half the sample rate. The cepstrum
                      wraps round: choose the grid several times finer than what the magnitude shows
    @returns          2^(k+1) samples
    @throws           std::bad_alloc
    Any thread.
*/
Eigen::VectorXd minimumPhaseResponse (const Eigen::VectorXd& magnitude);

}
