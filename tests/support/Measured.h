// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cmath>

#include <Eigen/Core>
#include <gtest/gtest.h>

#include "tools/receiver/device/Profile.h"
#include "tools/receiver/sound/Stimulus.h"

/** @file What measurements of a simulated receiver are compared with. */

namespace veltra::test {

/** The stimulus that a receiver describes. */
inline Eigen::VectorXf stimulusOf (const receiver::Profile& profile, std::uint32_t rate,
                                   veltraio::Stimulus kind = veltraio::Stimulus_kSineLogSweep)
{
    for (const auto& entry : profile.stimulusInfo.stimulusinformation())
        if (entry.stimulus() == kind && entry.samplerate() == rate)
        {
            std::string error;
            const auto description =
                tools::parseStimulus (static_cast<unsigned> (kind), rate, entry.information(), error);
            EXPECT_TRUE (description) << error;
            return tools::makeStimulus (*description);
        }

    ADD_FAILURE() << "no such stimulus";
    return {};
}

/** Largest difference, in dB relative to the largest sample of `wanted`, where `measured` lies somewhere behind an
    unknown silence. */
inline double difference_dB (const Eigen::VectorXf& measured, const Eigen::VectorXf& wanted)
{
    Eigen::Index peak = 0, wantedPeak = 0;
    measured.cwiseAbs().maxCoeff (&peak);
    const float level = wanted.cwiseAbs().maxCoeff (&wantedPeak);
    const auto begin = peak - wantedPeak;

    if (begin < 0 || begin + wanted.size() > measured.size())
        return 0.0;

    Eigen::VectorXf rest = measured;
    rest.segment (begin, wanted.size()) -= wanted;
    return 20.0 * std::log10 (static_cast<double> (rest.cwiseAbs().maxCoeff() / level));
}

}
