// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <Eigen/Core>

namespace veltra::dsp {

/** An exponential sine sweep: the frequency grows by the same factor in equal times, as in A. Farina,
    "Simultaneous measurement of impulse response and distortion with a swept-sine technique", 108th AES
    Convention, 2000.

    @param n           samples of the sweep
    @param f1, f2      frequency at the first and the last sample in Hz, 0 < f1 < f2
    @param pad         samples of silence behind the sweep
    @param repeats     how often sweep and silence follow one another
    @param sampleRate  in Hz
    @param fadeBand    the sweep fades out by half a cosine period over its last fadeBand Hz, from f2 - fadeBand
                       down to exactly zero at its last sample; 1 or less means no fade. Below f2 - f1
    @returns           (n + pad) * repeats samples
    @throws            std::bad_alloc
    Any thread.
*/
std::vector<float> makeSweep (unsigned n, double f1, double f2, unsigned pad, unsigned repeats, double sampleRate,
                              double fadeBand);

/** The sweep with a gain that follows its frequency.

    @param envelope  two points, one a row: frequency in Hz, not below f1, and linear gain. Below the first
                     frequency its gain holds, above the second the second's, between them the gain moves
                     linearly with time. Without rows the sweep stays as it is. Only the first period is shaped;
                     further ones repeat the unshaped sweep
    The other parameters are those of makeSweep.
*/
Eigen::VectorXf makeShapedSweep (unsigned n, double f1, double f2, unsigned pad, unsigned repeats, double sampleRate,
                                 double fadeBand, const Eigen::MatrixXf& envelope);

}
