// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/formats/GraphicEqualizer.h"

#include <algorithm>
#include <cmath>

#include "dsp/MinimumPhase.h"
#include "dsp/PreciseFft.h"

namespace veltra::host {

double gainAt (const std::vector<GainNode>& nodes, double frequency_Hz)
{
    const auto next = std::ranges::upper_bound (nodes, frequency_Hz, {}, &GainNode::frequency_Hz);

    if (next == nodes.begin())
        return nodes.front().gain_dB;

    if (next == nodes.end())
        return nodes.back().gain_dB;

    const auto& before = *std::prev (next);
    const double part =
        std::log (frequency_Hz / before.frequency_Hz) / std::log (next->frequency_Hz / before.frequency_Hz);
    return before.gain_dB + part * (next->gain_dB - before.gain_dB);
}

Eigen::VectorXd graphicResponse (const std::vector<GainNode>& nodes, double sampleRate)
{
    // Four seconds: the corners of a curve at low frequencies ring, and the cepstrum must not wrap round.
    const auto size = dsp::transformSize (static_cast<Eigen::Index> (4.0 * sampleRate));
    Eigen::VectorXd magnitude (size / 2 + 1);

    for (Eigen::Index i = 0; i < magnitude.size(); ++i)
        magnitude[i] =
            std::pow (10.0, gainAt (nodes, static_cast<double> (i) * sampleRate / static_cast<double> (size)) / 20.0);

    return dsp::minimumPhaseResponse (magnitude).head (static_cast<Eigen::Index> (sampleRate));
}

}
