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
    with its sample, to out. This is the definition, one passage after the other. */
void passThroughAllpass (double sample, double guard, double lambda, Eigen::VectorXd& d, Eigen::VectorXd& out)
{
    double previous = 0.0;

    for (Eigen::Index k = 0; k < d.size(); ++k)
    {
        const double x = (d[k] - previous * lambda) + guard;
        d[k] = x * lambda + previous;
        previous = x;
        out[k] += sample * d[k];
    }
}

/** Places by which the second lane follows the first: by then the first lane's chain of operations has come to its end. */
constexpr Eigen::Index lag = 16;

/** Passages in each lane. Even, so that every group begins with the same sign of the guard. */
constexpr std::size_t count = 4;

/** The same for 2 * count samples at a time.

    A passage is one long chain of dependent operations, but a passage may follow one place behind another: the
    processor works on all of them at a time. Two share a register; those in its second lane follow the ones in its first.
    Each value is computed by the same operations in the same order as by one passage after the other, hence is the same to
    the last bit.

    @param d, out  with `lag` more places in front and behind, where lanes are before they begin and after they end
*/
void passThroughAllpasses (const double* samples, double guard, double lambda, Eigen::VectorXd& d, Eigen::VectorXd& out)
{
    using Pair = Eigen::Array2d;
    std::array<Pair, count> previous, weight;
    const Pair factor = Pair::Constant (lambda), guards[] { Pair::Constant (guard), Pair::Constant (-guard) };

    for (std::size_t s = 0; s < count; ++s)
    {
        previous[s] = Pair::Zero();
        weight[s] = Pair (samples[s], samples[count + s]);
    }

    const auto step = [&] (Eigen::Index k) {
        Pair value (d[k], d[k - lag]), sum (out[k], out[k - lag]);

        for (std::size_t s = 0; s < count; ++s)
        {
            const Pair x = (value - previous[s] * factor) + guards[s % 2];
            value = x * factor + previous[s];
            previous[s] = x;
            sum += weight[s] * value;
        }

        d[k] = value[0];
        d[k - lag] = value[1];
        out[k] = sum[0];
        out[k - lag] = sum[1];
    };

    Eigen::Index k = lag;

    for (; k < 2 * lag; ++k)
        step (k);

    for (Pair& p : previous)
        p[1] = 0.0;

    for (; k < d.size(); ++k)
        step (k);
}

}

Eigen::VectorXd warpSequence (const Eigen::VectorXd& in, unsigned n, double lambda)
{
    constexpr Eigen::Index together = 2 * count;

    const Eigen::Index size = static_cast<Eigen::Index> (n) + 1;
    Eigen::VectorXd out = Eigen::VectorXd::Zero (lag + size + lag), d = Eigen::VectorXd::Zero (out.size());
    d[lag] = 1.0;
    out[lag] = in[0];

    Eigen::Index i = 1;

    for (; i + together <= in.size(); i += together)
        passThroughAllpasses (in.data() + i, guardLevel, lambda, d, out);

    // Moved in: an assignment that resizes is not safe without memory, see setSize.
    d = Eigen::VectorXd (d.segment (lag, size));
    out = Eigen::VectorXd (out.segment (lag, size));

    for (double guard = guardLevel; i < in.size(); ++i, guard = -guard)
        passThroughAllpass (in[i], guard, lambda, d, out);

    return out;
}

}
