// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

namespace veltra::bench {

/** The times of single operations of a row: what half of them, and all but one in a hundred, stay below. */
class Latencies
{
public:
    using Clock = std::chrono::steady_clock;

    void add (std::chrono::duration<double> time) { times_us.push_back (1e6 * time.count()); }

    /** Adds the counters p50_us and p99_us. */
    void report (benchmark::State& state)
    {
        std::sort (times_us.begin(), times_us.end());
        state.counters["p50_us"] = quantile (0.5);
        state.counters["p99_us"] = quantile (0.99);
    }

private:
    double quantile (double share) const
    {
        const auto rank = std::ceil (share * static_cast<double> (times_us.size()));
        return times_us.empty() ? 0.0 : times_us[static_cast<std::size_t> (std::max (rank, 1.0)) - 1];
    }

    std::vector<double> times_us;
};

}
