// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <Eigen/Core>

namespace veltra::host {

/** A point of a graphic equaliser's curve. */
struct GainNode
{
    double frequency_Hz = 0.0; ///< above 0
    double gain_dB = 0.0;
};

/** The curve's value: linear in dB over the logarithm of frequency between nodes, level outside of them.
    @param nodes  in ascending order of frequency, one at least */
double gainAt (const std::vector<GainNode>& nodes, double frequency_Hz);

/** The minimum-phase response of a curve, one second long.
    @throws std::bad_alloc */
Eigen::VectorXd graphicResponse (const std::vector<GainNode>& nodes, double sampleRate);

}
