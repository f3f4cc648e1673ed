// SPDX-License-Identifier: GPL-3.0-or-later
#include <bit>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/ProcessMemory.h"
#include "dsp/BandSplitFilters.h"
#include "dsp/RealFft.h"
#include "topology/VLFIRHandler.h"

/** @file
    The dual-rate conversion of a set of 12 channels. It is to take at most 1.5 times the time of the transforms that
    it cannot do without, and at most 4 times the memory of its responses.
*/

namespace veltra::bench {

namespace {

using Eigen::VectorXf;

constexpr unsigned channels = 12;

/** Decaying noise of one second for each channel, as long as a filter set's responses are. */
class Source final : public topology::IFIRSource
{
public:
    explicit Source (unsigned sampleRate)
    {
        std::mt19937 generator (1);
        std::normal_distribution<float> noise;

        for (unsigned i = 0; i < channels; ++i)
            responses.push_back (VectorXf::NullaryExpr (sampleRate, [&] (Eigen::Index n) {
                return n < 480 ? 0.0f : 0.1f * noise (generator) * std::exp (-1e-3f * static_cast<float> (n));
            }));
    }

    const VectorXf& getFIR (unsigned i) override { return responses[i]; }
    float getMaxGaindB (unsigned) override { return 6.0f; }
    std::uint32_t getChannelId (unsigned i) override { return i; }
    std::string getChannelName (unsigned i) override { return std::to_string (i); }
    std::uint32_t getChannelCount() override { return channels; }
    void log (int, const std::string&) override {}

private:
    std::vector<VectorXf> responses;
};

bool convert (Source& source, unsigned sampleRate, unsigned taps)
{
    juce::StringPairArray parameters;
    parameters.set ("NbrOfFIRTaps", juce::String (taps));
    juce::PropertySet settings;
    juce::MemoryBlock blob;
    auto result = juce::Result::ok();
    topology::VLFIR2Handler().createFilterData (result, source, parameters, sampleRate, blob, settings);
    return result.wasOk();
}

void BM_VLFIRConversion (benchmark::State& state)
{
    const auto sampleRate = static_cast<unsigned> (state.range (0)), taps = static_cast<unsigned> (state.range (1));
    Source source (sampleRate);

    for (auto _ : state)
        if (! convert (source, sampleRate, taps))
            state.SkipWithError ("the conversion failed");
}

/** What the conversion has to transform, with the plans and the fixed filters' spectra at hand: for each channel the
    response to its spectrum, back through each of the two filters, its energy to a spectrum, and that back. */
void BM_VLFIRTransforms (benchmark::State& state)
{
    const auto samplesNeeded = static_cast<unsigned> (state.range (0)) + dsp::kHighPassFilter.size() - 1;
    const dsp::RealFft fft (static_cast<int> (std::bit_ceil (samplesNeeded)));
    VectorXf samples = VectorXf::Random (fft.size());
    Eigen::VectorXcf spectrum;

    for (auto _ : state)
        for (unsigned i = 0; i < channels; ++i)
        {
            fft.forward (samples, spectrum);
            fft.inverse (spectrum, samples);
            fft.inverse (spectrum, samples);
            fft.forward (samples, spectrum);
            fft.inverse (spectrum, samples);
            benchmark::DoNotOptimize (samples.data());
        }
}

/** How far the process grows over its responses. */
void BM_VLFIRMemory (benchmark::State& state)
{
    const auto sampleRate = static_cast<unsigned> (state.range (0)), taps = static_cast<unsigned> (state.range (1));
    Source source (sampleRate);

    for (auto _ : state)
    {
        const PeakMemory memory;
        convert (source, sampleRate, taps);
        state.counters["peak_MiB"] = memory.growth_MiB();
    }

    state.counters["responses_MiB"] = 4.0 * channels * sampleRate / (1024.0 * 1024.0);
}

BENCHMARK (BM_VLFIRTransforms)->Arg (48000)->Arg (96000);
BENCHMARK (BM_VLFIRConversion)->Args ({ 48000, 2048 })->Args ({ 96000, 4096 });
BENCHMARK (BM_VLFIRMemory)->Args ({ 48000, 2048 })->Args ({ 96000, 4096 })->Iterations (1);

}

}
