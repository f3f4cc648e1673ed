// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The FIIR design beside its plainest form, by stage, and against length and number of sections. All on one thread.
*/

#include <cmath>
#include <random>

#include <benchmark/benchmark.h>

#include "bench/ReferenceFIIRDesign.h"
#include "dsp/FIIRDesign.h"
#include "dsp/ParallelSections.h"
#include "dsp/ResidueFit.h"
#include "dsp/WarpedModes.h"
#include "dsp/WarpSequence.h"

namespace veltra::bench {

namespace {

using Eigen::VectorXd;
using Eigen::VectorXf;

constexpr double sampleRate = 48000.0;
constexpr unsigned oneSecond = 47000, usualSections = 30; // behind 1000 taps

/** Something like a room's tail: noise that falls by 60 dB in half a second. */
VectorXf roomTail (Eigen::Index size)
{
    std::mt19937 generator (1);
    std::normal_distribution<double> normal;

    return VectorXf::NullaryExpr (size, [&] (Eigen::Index i) {
        return static_cast<float> (normal (generator)
                                   * std::pow (10.0, -3.0 * static_cast<double> (i) / (0.5 * sampleRate)));
    });
}

double warpFactor() { return std::cos (std::acos (0.9) * 44100.0 / sampleRate); }

/** What one stage of the usual design hands to the next. */
struct Stages
{
    VectorXd tail = roomTail (oneSecond).cast<double>();
    VectorXd warped = dsp::warpSequence (tail, dsp::modeSpan + 2, warpFactor());
    Eigen::Index order = 2 * usualSections - 2;
    dsp::Poles poles = dsp::unwarpPoles (
        dsp::findModes (warped, order, dsp::HankelDecomposition::symmetric).eigenvalues, warpFactor());
};

void BM_PlainDesign (benchmark::State& state)
{
    const VectorXf tail = roomTail (oneSecond);

    for (auto _ : state)
        benchmark::DoNotOptimize (dsp::reference::designFIIR (tail, 0, usualSections, sampleRate));
}

void BM_Design (benchmark::State& state)
{
    const VectorXf tail = roomTail (state.range (0));

    for (auto _ : state)
        benchmark::DoNotOptimize (dsp::designFIIR (tail, 0, static_cast<unsigned> (state.range (1)), sampleRate));
}

void BM_DesignWarp (benchmark::State& state)
{
    const Stages stages;

    for (auto _ : state)
        benchmark::DoNotOptimize (dsp::warpSequence (stages.tail, dsp::modeSpan + 2, warpFactor()));
}

void BM_DesignModes (benchmark::State& state)
{
    const Stages stages;

    for (auto _ : state)
        benchmark::DoNotOptimize (dsp::findModes (stages.warped, stages.order, dsp::HankelDecomposition::symmetric));
}

void BM_DesignFit (benchmark::State& state)
{
    const Stages stages;

    for (auto _ : state)
        benchmark::DoNotOptimize (dsp::ResidueFit (stages.poles, stages.tail).solve (0.0));
}

BENCHMARK (BM_PlainDesign)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_DesignWarp)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_DesignModes)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_DesignFit)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_Design)
    ->Unit (benchmark::kMillisecond)
    ->ArgsProduct ({ { oneSecond / 4, oneSecond / 2, oneSecond, 2 * oneSecond }, { usualSections } })
    ->ArgsProduct ({ { oneSecond }, { 10, 20, 60, 120 } });

}

}
