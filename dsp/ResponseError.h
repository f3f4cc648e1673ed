// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <Eigen/Core>

namespace veltra::dsp {

/** How a response that is played differs from the one that was wanted. All errors are energies of the difference of the
    two responses, in dB relative to the wanted response's energy in the same band: -infinity where the two are equal,
    +infinity where nothing was wanted.
*/
struct ResponseError
{
    struct Band
    {
        double centre_Hz;
        double wanted_dB; ///< mean magnitude of the wanted response
        double played_dB; ///< mean magnitude of the played response
        double error_dB;
        double level_dB; ///< the wanted response's energy in the band, relative to its whole energy
    };

    /** Over all frequencies. */
    double overall_dB = 0.0;

    /** The played response is zero throughout. */
    bool isSilent = false;

    /** Octaves with centres 1000 Hz * 2^k from 15.625 Hz up to half the sample rate, each from its centre / sqrt (2)
        to its centre * sqrt (2). */
    std::vector<Band> octaves;

    /** Bands for a picture, kCurvePointsPerOctave in each octave from 10 Hz on. Where resolution_Hz is wider than a
        band, the band is one point of the spectrum. */
    std::vector<Band> curve;

    double resolution_Hz = 0.0; ///< between two points of the spectrum
};

inline constexpr int kCurvePointsPerOctave = 48;

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
