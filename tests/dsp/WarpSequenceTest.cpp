// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/WarpSequence.h"
#include "dsp/WarpedModes.h"
#include "tests/support/ImpulseResponses.h"
#include "tests/support/Testing.h"

namespace {

using Eigen::VectorXd;
using namespace veltra::dsp;

/** With one pass over the delays for each sample. */
VectorXd warpDirectly (const VectorXd& in, unsigned n, double lambda)
{
    VectorXd out = VectorXd::Zero (n + 1), delays = VectorXd::Unit (n + 1, 0);
    double guard = 1e-20;
    out[0] = in[0];

    for (Eigen::Index i = 1; i < in.size(); ++i, guard = -guard)
    {
        double previous = 0.0;

        for (double& delay : delays)
        {
            const double x = (delay - previous * lambda) + guard;
            delay = x * lambda + previous;
            previous = x;
        }

        out += in[i] * delays;
    }

    return out;
}

TEST (WarpSequence, InterleavingChangesNoBit)
{
    const VectorXd noise = test::whiteNoise (1000).cast<double>();

    for (const double lambda : { 0.0, 0.9, 0.97861, -0.5 })
        for (const unsigned n : { 0u, 1u, 5u, 300u, 1024u })
            for (const Eigen::Index size : { 1, 2, 3, 6, 7, 8, 12, 13, 14, 1000 })
                EXPECT_EQ (warpDirectly (noise.head (size), n, lambda), warpSequence (noise.head (size), n, lambda))
                    << size << " samples to " << n << " by " << lambda;

    // A long silence, where the guard against denormal numbers is all that is left in the recursion.
    VectorXd silent = VectorXd::Zero (20000);
    silent[19999] = 1.0;
    EXPECT_EQ (warpDirectly (silent, 200, 0.5), warpSequence (silent, 200, 0.5));
}

TEST (WarpSequence, TheOppositeFactorUndoesIt)
{
    const VectorXd noise = test::whiteNoise (50).cast<double>();
    const VectorXd back = warpSequence (warpSequence (noise, 3000, 0.8), 49, -0.8);
    EXPECT_LT ((back - noise).norm(), 1e-12 * noise.norm());
}

TEST (HankelMatrix, RisingDiagonalsAreConstant)
{
    const VectorXd column = VectorXd::LinSpaced (4, 1.0, 4.0), row = VectorXd::LinSpaced (3, 4.0, 6.0);
    Eigen::MatrixXd expected (4, 3);
    expected << 1, 2, 3, 2, 3, 4, 3, 4, 5, 4, 5, 6;
    EXPECT_EQ (expected, hankelMatrix (column, row));
    EXPECT_EQ (column, hankelMatrix (column, VectorXd::Constant (1, 4.0)));
}

}
