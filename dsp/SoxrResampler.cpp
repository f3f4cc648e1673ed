// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/SoxrResampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>

#include <soxr.h>

namespace veltra::dsp {

namespace {

std::mutex oneAtATime;

/** Steps of a resampler: `out` samples come out for `in` that go in. */
struct Period
{
    std::uint64_t in = 1;
    std::uint64_t out = 1;
};

/** The simplest fraction for a ratio, by its continued fraction. Ratios of sample rates are found
    exactly; whatever else comes in is met to within a part in 10^12. */
Period periodOf (double ratio)
{
    constexpr std::uint64_t longest = 1u << 21;
    Period last { 0, 1 };
    Period period { 1, static_cast<std::uint64_t> (ratio) };

    for (double rest = ratio - std::floor (ratio); rest > 0.0;)
    {
        const double found = static_cast<double> (period.out) / static_cast<double> (period.in);

        if (std::abs (found - ratio) <= 1e-12 * ratio)
            break;

        rest = 1.0 / rest;
        const double whole = std::floor (rest);
        rest -= whole;

        if (whole * static_cast<double> (period.in) > static_cast<double> (longest))
            break;

        const auto factor = static_cast<std::uint64_t> (whole);
        const Period next { factor * period.in + last.in, factor * period.out + last.out };
        last = period;
        period = next;
    }

    return period;
}

/** Least length of the lead-in. */
constexpr std::uint64_t kLeadIn = 1024;

constexpr size_t kOutputStep = 4096;

}

void SoxrResampler::Deleter::operator() (soxr* toDelete) const noexcept { soxr_delete (toDelete); }

SoxrResampler::SoxrResampler (double ratio) : lock (oneAtATime)
{
    if (ratio == 1.0)
        return;

    auto quality = soxr_quality_spec (SOXR_VHQ, SOXR_ROLLOFF_NONE);
    quality.precision = 20.0;
    quality.passband_end = 0.9913; // puts -3 dB at 0.995
    quality.stopband_begin = 1.0;

    const auto type = soxr_io_spec (SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const auto threads = soxr_runtime_spec (1);
    soxr_error_t error = nullptr;
    resampler.reset (soxr_create (1.0, ratio, 1, &error, &type, &quality, &threads));

    if (resampler == nullptr || error != nullptr)
        throw std::bad_alloc();

    // At fractional ratios the first samples that libsoxr makes are wrong by some thousandths. Zeros in front take
    // them: whole periods, so that the signal behind keeps its place between the samples.
    const auto period = periodOf (ratio);
    const auto periods = (kLeadIn + period.in - 1) / period.in;
    const std::vector<double> silence (kOutputStep);
    toDrop = periods * period.out;

    for (auto left = periods * period.in; left > 0;)
    {
        const auto count = std::min<std::uint64_t> (left, silence.size());
        push (silence.data(), count);
        left -= count;
    }
}

int SoxrResampler::process (double* input, int count, double*& output)
{
    if (resampler == nullptr)
    {
        output = input;
        return count;
    }

    // What the lead-in made beyond itself waits here for the first call.
    push (input, static_cast<size_t> (count));
    delivered.swap (made);
    made.clear();
    output = delivered.data();
    return static_cast<int> (delivered.size());
}

void SoxrResampler::push (const double* input, size_t count)
{
    for (;;)
    {
        const auto start = made.size();
        made.resize (start + kOutputStep);

        size_t taken = 0;
        size_t given = 0;

        if (soxr_process (resampler.get(), input, count, &taken, made.data() + start, kOutputStep, &given) != nullptr)
            throw std::bad_alloc();

        made.resize (start + given);
        input += taken;
        count -= taken;

        if (count == 0 && given < kOutputStep)
            break;
    }

    const auto dropped = std::min (toDrop, made.size());
    made.erase (made.begin(), made.begin() + static_cast<std::ptrdiff_t> (dropped));
    toDrop -= dropped;
}

}
