// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/dsp/DesignComparison.h"

namespace {

using namespace veltra::dsp;
using namespace veltra::dsp::test;

TEST (FIIRDesignAgainstReference, LivingRoom)
{
    expectAgreement (livingRoom ("FL_48000").head (4000), 1000, 30, 48000.0);
}

TEST (FIIRDesignAgainstReference, DecayingExponential)
{
    expectAgreement (modalResponse (3000, { { 0.99, 0.5 } }), 0, 30, 48000.0);
}

TEST (FIIRDesignAgainstReference, CloseModes)
{
    expectAgreement (closeModes (6000), 0, 30, 48000.0);
    expectAgreement (closeModes (6000), 0, 3, 48000.0);
}

TEST (FIIRDesignAgainstReference, WhiteNoise) { expectAgreement (whiteNoise (3000), 0, 30, 48000.0); }

TEST (FIIRDesignAgainstReference, FewerSamplesThanModes)
{
    expectNoWorseFit (whiteNoise (1), 30, 48000.0);
    expectNoWorseFit (whiteNoise (10), 30, 48000.0);
    expectNoWorseFit (whiteNoise (40), 30, 48000.0);
}

TEST (FIIRDesignAgainstReference, NothingToModel)
{
    const FIIRDesign design = designFIIR (Eigen::VectorXf::Zero (3000), 100, 30, 48000.0);
    EXPECT_EQ (std::vector<FIIRSection> (30), design.sections);

    expectNoWorseFit (impulse (3000, 0), 30, 48000.0);
}

TEST (FIIRDesignAgainstReference, OneImpulse)
{
    for (const Eigen::Index place : { 1, 2, 5 })
        expectNoWorseFit (impulse (3000, place), 30, 48000.0);
}

TEST (FIIRDesignAgainstReference, AnExponentialThatNothingRounds)
{
    expectNoWorseFit (modalResponse (3000, { { 0.5, 1.0 } }), 30, 48000.0);
    expectNoWorseFit (modalResponse (3000, { { -0.5, 1.0 } }), 30, unwarpedRate);
}

}
