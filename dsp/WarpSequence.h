// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::dsp {

/** Warps the time axis of a sequence: each unit delay becomes the first-order all-pass
    (z^-1 + lambda) / (1 + lambda z^-1), so that in[0] + in[1] z^-1 + in[2] z^-2 + ... turns into a response on
    a bent frequency axis. A lambda between 0 and 1 spreads the low frequencies out; -lambda undoes lambda, up
    to what the truncation has cut off.

    See A. Harma, M. Karjalainen, L. Savioja, V. Valimaki, U. K. Laine, J. Huopaniemi, "Frequency-warped signal
    processing for audio applications", J. Audio Eng. Soc. 48 (2000).

    @param in      at least one sample
    @param n       place of the last sample that is wanted
    @param lambda  all-pass coefficient, above -1 and below 1
    @returns       the first n + 1 samples of the warped response
    @throws        std::bad_alloc
    Takes n + 1 steps for each sample of `in`. Safe to call from several threads at once.
*/
Eigen::VectorXd warpSequence (const Eigen::VectorXd& in, unsigned n, double lambda);

}
