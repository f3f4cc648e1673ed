// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/WarpSequence.h"

#include <array>
#include <cstddef>

namespace veltra::dsp {

namespace {

/** Keeps the recursion of the all-passes out of denormal numbers. Its sign changes with every sample, so that
    it does not add up. */
constexpr double guardLevel = 1e-20;

/** Sends the line of delays d through as many all-passes as there are samples and adds each passage, weighted
    with its sample, to out.

    A passage is one long chain of dependent operations, but a passage may follow one place behind another: the
    processor works on all of them at a time. Each value is computed by the same operations in the same order
    as by one passage after the other, hence is the same to the last bit.
*/
template <std::size_t count>
void passThroughAllpasses (const double* samples, double guard, double lambda, Eigen::VectorXd& d, Eigen::VectorXd& out)
{
    std::array<double, count> previous {}, weight, guards;

    for (std::size_t s = 0; s < count; ++s)
    {
        weight[s] = samples[s];
        guards[s] = s % 2 == 0 ? guard : -guard;
    }

    for (Eigen::Index k = 0; k < d.size(); ++k)
    {
        double value = d[k], sum = out[k];

        for (std::size_t s = 0; s < count; ++s)
        {
            const double x = (value - previous[s] * lambda) + guards[s];
            value = x * lambda + previous[s];
            previous[s] = x;
            sum += weight[s] * value;
        }

        d[k] = value;
        out[k] = sum;
    }
}

}

Eigen::VectorXd warpSequence (const Eigen::VectorXd& in, unsigned n, double lambda)
{
    constexpr Eigen::Index together = 6; // even, so that every group begins with the same sign of the guard

    const Eigen::Index size = static_cast<Eigen::Index> (n) + 1;
    Eigen::VectorXd out = Eigen::VectorXd::Zero (size), d = Eigen::VectorXd::Zero (size);
    d[0] = 1.0;
    out[0] = in[0];

    Eigen::Index i = 1;

    for (; i + together <= in.size(); i += together)
        passThroughAllpasses<together> (in.data() + i, guardLevel, lambda, d, out);

    for (double guard = guardLevel; i < in.size(); ++i, guard = -guard)
        passThroughAllpasses<1> (in.data() + i, guard, lambda, d, out);

    return out;
}

}
