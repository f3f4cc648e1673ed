// SPDX-License-Identifier: GPL-3.0-or-later
#ifndef VELTRA_HAS_R8BRAIN

#include <algorithm>
#include <vector>

#include <Eigen/Core>
#include <gtest/gtest.h>

#include "dsp/SoxrResampler.h"

namespace {

/** All that comes out for a signal and the silence behind it, which go in by blocks of a size. */
std::vector<double> resample (std::vector<double> signal, double ratio, std::size_t blockSize)
{
    veltra::dsp::SoxrResampler resampler (ratio);
    std::vector<double> out;

    for (std::size_t taken = 0; taken < signal.size(); taken += blockSize)
    {
        double* made = nullptr;
        const auto count = std::min (blockSize, signal.size() - taken);
        const int got = resampler.process (signal.data() + taken, static_cast<int> (count), made);
        out.insert (out.end(), made, made + got);
    }

    return out;
}

TEST (SoxrResampler, WhatComesOutDoesNotDependOnTheBlocksThatGoIn)
{
    const Eigen::VectorXd noise = Eigen::VectorXd::Random (3000);
    std::vector<double> signal (80000); // libsoxr keeps back 20000 and more
    std::copy (noise.begin(), noise.end(), signal.begin());

    for (const double ratio : { 1.0, 2.0, 147.0 / 160.0, 0.25 })
    {
        const auto whole = resample (signal, ratio, signal.size());
        ASSERT_GT (whole.size(), 3000 * ratio);

        for (const std::size_t size : { 7u, 480u, 4096u })
        {
            const auto blocks = resample (signal, ratio, size);
            const auto common = std::min (whole.size(), blocks.size()); // the last block keeps back more or less
            ASSERT_GT (common, 3000 * ratio);
            EXPECT_TRUE (
                std::equal (whole.begin(), whole.begin() + static_cast<std::ptrdiff_t> (common), blocks.begin()))
                << ratio << " by " << size;
        }
    }
}

}

#endif
