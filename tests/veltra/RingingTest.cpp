// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include "tools/veltra/filters/FilterDesign.h"

namespace veltra::host {

TEST (FilterDesign, WhatRingsBehindTheResponseIsPartOfTheError)
{
    // A mode that is cut off after its first second, where a section goes on.
    constexpr unsigned rate = 8000;
    constexpr double decay_per_s = 4.8;
    DescribedResponse response { rate, std::vector<float> (rate) };

    for (unsigned i = 0; i < rate; ++i)
    {
        const double time_s = static_cast<double> (i) / rate;
        response.taps[i] =
            static_cast<float> (std::exp (-decay_per_s * time_s) * std::sin (2.0 * std::numbers::pi * 440.0 * time_s));
    }

    FilterDescription description { "Room", "FIIR", { { .name = "C", .number = 1, .responses = { response } } } };
    const auto designs = designFilters (description, { .taps = 8, .sections = 2 }, [] (double) {});
    ASSERT_EQ (1u, designs.size());
    EXPECT_NEAR (20.0 * std::log10 (std::exp (-decay_per_s)), designs[0].error.overall_dB, 0.5);
}

}
