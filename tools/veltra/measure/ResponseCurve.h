// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <Eigen/Core>

namespace veltra::host {

/** A response at one frequency. */
struct CurvePoint
{
    double frequency_Hz = 0.0;
    double magnitude_dB = 0.0;  ///< minus infinity for nothing
    double phase_degrees = 0.0; ///< from -180 to 180, of the response from its first sample on
    double groupDelay_ms = 0.0;
};

/** A response on a logarithmic axis of frequencies, 48 an octave from 10 Hz up to half the sample rate, exactly at each of them.

    @param response    samples, one at least
    @param octaves     the magnitude is the mean of the power over that part of an octave round each frequency; 0: not smoothed
    @throws            std::bad_alloc
*/
std::vector<CurvePoint> curveOf (const Eigen::VectorXf& response, double sampleRate, double octaves);

/** What a step at time 0 gives: the sums of the samples up to each. */
Eigen::VectorXd stepResponse (const Eigen::VectorXf& response);

}
