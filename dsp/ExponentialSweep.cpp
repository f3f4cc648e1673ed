// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/ExponentialSweep.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>
#include <numbers>

namespace veltra::dsp {

namespace {

/** The sample, from 0 to n, at which a fraction of a sweep of n samples has passed. A fraction that is no
    number, as from parameters outside of the design, counts as 0. */
unsigned sampleAt (double fraction, unsigned n) noexcept
{
    const double sample = fraction * n + 0.5;
    return sample > 0.0 ? static_cast<unsigned> (std::min (sample, static_cast<double> (n))) : 0;
}

void fadeOut (std::vector<float>& sweep, unsigned start, unsigned end) noexcept
{
    const auto step = static_cast<float> (std::numbers::pi / (end - start));

    for (unsigned i = start; i < end; ++i)
    {
        const float angle = static_cast<float> (i - start + 1) * step;
        const auto cosine = static_cast<float> (std::cos (static_cast<double> (angle)));
        sweep[i] *= (cosine + 1.0f) * 0.5f;
    }
}

std::size_t sweepLength (unsigned n, unsigned pad, unsigned repeats)
{
    const std::size_t period = std::size_t { n } + pad;

    if (repeats != 0 && period > std::vector<float>().max_size() / repeats)
        throw std::bad_alloc();

    return period * repeats;
}

}

std::vector<float> makeSweep (unsigned n, double f1, double f2, unsigned pad, unsigned repeats, double sampleRate,
                              double fadeBand)
{
    std::vector<float> sweep (sweepLength (n, pad, repeats));

    if (sweep.empty())
        return sweep;

    const double w1 = f1 * 2.0 * std::numbers::pi;
    const double w2 = f2 * 2.0 * std::numbers::pi;
    const double octaves = std::log (w2 / w1); // natural ones
    const double step = n > 1 ? octaves / (n - 1) : 0.0;
    const double scale = ((n * w1) / sampleRate) / octaves;

    for (unsigned i = 0; i < n; ++i)
        sweep[i] = static_cast<float> (std::sin ((std::exp (i * step) - 1.0) * scale));

    if (fadeBand > 1.0)
        fadeOut (sweep, sampleAt (std::log ((f2 - fadeBand) / f1) / std::log (f2 / f1), n), n);

    for (std::size_t period = 1; period < repeats; ++period)
        std::copy_n (sweep.begin(), n,
                     sweep.begin() + static_cast<std::ptrdiff_t> (period * (std::size_t { n } + pad)));

    return sweep;
}

Eigen::VectorXf makeShapedSweep (unsigned n, double f1, double f2, unsigned pad, unsigned repeats, double sampleRate,
                                 double fadeBand, const Eigen::MatrixXf& envelope)
{
    auto sweep = makeSweep (n, f1, f2, pad, repeats, sampleRate, fadeBand);

    if (envelope.rows() >= 2 && ! sweep.empty())
    {
        const double range = std::log (f2 / f1);
        const double gain0 = envelope (0, 1), gain1 = envelope (1, 1);
        const unsigned i0 = sampleAt (std::log (envelope (0, 0) / f1) / range, n);
        const unsigned i1 = std::max (i0, sampleAt (std::log (envelope (1, 0) / f1) / range, n));
        const double step = i1 != i0 ? (gain1 - gain0) / (i1 - i0) : 0.0;
        double gain = gain0;

        for (unsigned i = 0; i < n; ++i)
        {
            sweep[i] = static_cast<float> (sweep[i] * (i < i1 ? gain : gain1));

            if (i >= i0)
                gain += step;
        }
    }

    return Eigen::VectorXf::Map (sweep.data(), static_cast<Eigen::Index> (sweep.size()));
}

}
