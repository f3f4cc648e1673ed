// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <Eigen/Core>

namespace veltra::dsp {

/** How far a response that is played misses the one that was wanted, as energy. */
struct ResponseError
{
    /** One octave, from centre_Hz / sqrt (2) to centre_Hz * sqrt (2). */
    struct Band
    {
        double centre_Hz;
        double error_dB; ///< energy of the difference in the band, relative to the wanted response's in the band
        double level_dB; ///< the wanted response's energy in the band, relative to its whole energy
    };

    /** Energy of the difference relative to the wanted response's; -infinity when there is no difference. */
    double overall_dB;

    /** The octaves with centres 1000 Hz * 2^k from 15.625 Hz up to half the sample rate. */
    std::vector<Band> bands;
};

/** Compares two responses.

    @param wanted      samples
    @param played      samples; either may be the longer one, what lies beyond an end counts as zero
    @param delay       samples by which the played response comes later than the wanted one, 0 or more
    @param sampleRate  in Hz
    @throws            std::bad_alloc
    Any thread.
*/
ResponseError compareResponses (const Eigen::VectorXf& wanted, const Eigen::VectorXf& played, Eigen::Index delay,
                                double sampleRate);

}
