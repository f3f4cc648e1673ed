// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/FIIRDesign.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "dsp/ParallelSections.h"
#include "dsp/ResidueFit.h"
#include "dsp/WarpedModes.h"
#include "dsp/WarpSequence.h"

namespace veltra::dsp {

namespace {

using Sections = std::vector<FIIRSection>;

/** Two samples more than the modes are found from. */
constexpr unsigned lastWarpedSample = modeSpan + 2;

/** Equations that are worse conditioned give residues of opposite sign that cancel: what single-precision
    coefficients leave of such a solution is a matter of chance. */
constexpr double leastCondition = 1e-7;

void check (const Eigen::VectorXf& in, std::uint32_t nTaps, std::uint32_t nSections, double sampleRate)
{
    if (in.size() <= static_cast<Eigen::Index> (nTaps))
        throw std::invalid_argument ("the response has " + std::to_string (in.size())
                                     + " samples, which does not exceed the " + std::to_string (nTaps)
                                     + " taps to keep");

    if (nSections < 1 || nSections > maxDesignSections)
        throw std::invalid_argument ("cannot design " + std::to_string (nSections) + " sections, only 1 to "
                                     + std::to_string (maxDesignSections));

    if (! in.allFinite())
        throw std::invalid_argument ("the response has samples that are not finite numbers");

    if (! (sampleRate > 0.0 && std::isfinite (sampleRate)))
        throw std::invalid_argument ("the sample rate is not a positive number");
}

/** Spreads the same low frequencies whatever the sample rate, beginning with 0.9 at 44100 Hz. */
double warpFactor (double sampleRate) { return std::cos (std::acos (0.9) * (44100.0 / sampleRate)); }

/** False when a weight was too large for single precision. */
bool allFinite (const Sections& sections)
{
    return std::all_of (sections.begin(), sections.end(), [] (const FIIRSection& s) {
        return std::isfinite (s.a1) && std::isfinite (s.a2) && std::isfinite (s.b0) && std::isfinite (s.b1);
    });
}

double missedEnergy (const Sections& sections, const Eigen::VectorXd& tail)
{
    return (impulseResponse (sections, tail.size()) - tail).squaredNorm();
}

/** Where rounding decides on the modes, no solver's are better than another's, and the exact solution for them may be
    useless once it is rounded: tries all of them, with different cut-offs in the equations. */
Sections bestSections (const std::vector<Poles>& candidates, const Eigen::VectorXd& tail, std::uint32_t nSections)
{
    Sections best = parallelSections ({}, ResidueFit ({}, tail).solve (0.0), nSections);
    double least = missedEnergy (best, tail);

    for (const Poles& poles : candidates)
    {
        const ResidueFit fit (poles, tail);

        for (const double cutoff : { 0.0, 1e-12, 1e-10, 1e-8, 1e-7, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2 })
        {
            Sections sections = parallelSections (poles, fit.solve (cutoff), nSections);
            const double missed = missedEnergy (sections, tail);

            if (missed < least && allFinite (sections))
            {
                best.swap (sections);
                least = missed;
            }
        }
    }

    return best;
}

Sections modelTail (const Eigen::VectorXd& tail, std::uint32_t nSections, double lambda)
{
    const Eigen::VectorXd warped = warpSequence (tail, lastWarpedSample, lambda);
    const Eigen::Index order = 2 * static_cast<Eigen::Index> (nSections) - 2;

    const WarpedModes modes = findModes (warped, order, HankelDecomposition::symmetric);
    const Poles poles = unwarpPoles (modes.eigenvalues, lambda);

    if (modes.wellDetermined)
    {
        const ResidueFit fit (poles, tail);

        if (fit.reciprocalCondition() > leastCondition)
        {
            Sections sections = parallelSections (poles, fit.solve (0.0), nSections);

            // Poles near 1 can move far enough in rounding for a good fit to become worse than silence.
            if (allFinite (sections) && missedEnergy (sections, tail) <= tail.squaredNorm())
                return sections;
        }
    }

    return bestSections (
        { poles, unwarpPoles (findModes (warped, order, HankelDecomposition::jacobi).eigenvalues, lambda) }, tail,
        nSections);
}

}

FIIRDesign designFIIR (const Eigen::VectorXf& in, std::uint32_t nTaps, std::uint32_t nSections, double sampleRate)
{
    check (in, nTaps, nSections, sampleRate);
    const Eigen::VectorXd tail = in.tail (in.size() - static_cast<Eigen::Index> (nTaps)).cast<double>();
    return { in.head (nTaps), modelTail (tail, nSections, warpFactor (sampleRate)) };
}

}
