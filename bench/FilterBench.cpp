// SPDX-License-Identifier: GPL-3.0-or-later
#include <charconv>
#include <cmath>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <rapidxml/rapidxml.hpp>

#include "dsp/Resampling.h"
#include "filters/FIIREngine.h"
#include "filters/FilterDescriptionParser.h"
#include "filters/FilterSetsImpl.h"
#include "tools/veltra/filters/FilterImport.h"

/** @file
    From filter text to impulse responses. A description is to be parsed in at most 1.3 times the time of its
    reference, and a second of impulse response is to take time in proportion to taps plus samples.
*/

namespace {

using namespace veltra;

/** The description of the sample room: 24 impulse responses, about 520000 numbers. */
const std::string& livingRoom()
{
    static const std::string text = [] {
        host::ImportOptions options;
        options.project = "Living room";
        options.technology = "FIR";

        for (const auto& entry : std::filesystem::directory_iterator (VELTRA_EXAMPLES_DIR "/living-room"))
            if (entry.path().extension() == ".wav" && ! entry.path().filename().string().starts_with ("measured_"))
                options.files.push_back (entry.path());

        std::ostringstream words;
        std::ostringstream description;
        host::writeFilterDescription (description, host::importFilters (options, words, words));
        return description.str();
    }();

    return text;
}

/** The least that parsing takes: RapidXml's own parse of a copy, and from_chars once over the numbers. */
void BM_ParseReference (benchmark::State& state)
{
    const auto& text = livingRoom();
    const auto document = std::make_unique<rapidxml::xml_document<char>>();
    std::vector<float> numbers (32768);

    for (auto _ : state)
    {
        std::string copy = text;
        document->clear();
        document->parse<rapidxml::parse_default> (copy.data());

        for (const auto* channel = document->first_node ("Veltra")->first_node ("Tune")->first_node ("Channel");
             channel != nullptr; channel = channel->next_sibling())
        {
            for (const auto* set = channel->first_node(); set != nullptr; set = set->next_sibling())
            {
                const auto* const taps = set->first_node ("FIR")->first_node ("taps");
                const char* const end = taps->value() + taps->value_size();
                auto number = numbers.begin();

                for (const char* position = taps->value(); position < end; ++position)
                {
                    double value = 0.0;
                    position = std::from_chars (position, end, value).ptr;
                    *number++ = static_cast<float> (value);
                }

                benchmark::DoNotOptimize (numbers.data());
            }
        }
    }

    state.SetBytesProcessed (static_cast<std::int64_t> (state.iterations() * text.size()));
}
BENCHMARK (BM_ParseReference)->Unit (benchmark::kMillisecond);

/** Walking and checking alone. */
void BM_ParseDescription (benchmark::State& state)
{
    const auto& text = livingRoom();

    for (auto _ : state)
        if (parser::FIIR::parse (text.c_str(), nullptr, "Veltra") != parser::FIIR::Success)
            state.SkipWithError ("the description was refused");

    state.SetBytesProcessed (static_cast<std::int64_t> (state.iterations() * text.size()));
}
BENCHMARK (BM_ParseDescription)->Unit (benchmark::kMillisecond);

/** Parsing into a filter set, which keeps the numbers. */
void BM_LoadDescription (benchmark::State& state)
{
    const auto& text = livingRoom();

    for (auto _ : state)
    {
        filters::FilterSetsImpl set;

        if (parser::FIIR::parse (text.c_str(), &set, "Veltra") != parser::FIIR::Success)
            state.SkipWithError ("the description was refused");
    }

    state.SetBytesProcessed (static_cast<std::int64_t> (state.iterations() * text.size()));
}
BENCHMARK (BM_LoadDescription)->Unit (benchmark::kMillisecond);

/** One second at 48000 Hz; arguments: taps, sections. */
void BM_ImpulseResponse (benchmark::State& state)
{
    filters::FIIREngine engine;
    engine.setTaps (Eigen::VectorXf::Random (state.range (0)));

    // Poles from 20 Hz to 10 kHz: the low ones ring through the second, the high ones decay within it.
    for (std::int64_t i = 0; i < state.range (1); ++i)
    {
        const double angle = 0.0026 * std::pow (500.0, static_cast<double> (i) / static_cast<double> (state.range (1)));
        const double radius = 1.0 - angle / 20.0;
        engine.addSection ({ static_cast<float> (-2.0 * radius * std::cos (angle)),
                             static_cast<float> (radius * radius), 0.1f, 0.1f });
    }

    for (auto _ : state)
    {
        Eigen::VectorXf signal = Eigen::VectorXf::Unit (48000, 0);
        engine.process (signal);
        benchmark::DoNotOptimize (signal.data());
    }
}
BENCHMARK (BM_ImpulseResponse)
    ->Unit (benchmark::kMicrosecond)
    ->Args ({ 1000, 0 })
    ->Args ({ 16384, 0 })
    ->Args ({ 47999, 0 })
    ->Args ({ 1000, 30 })
    ->Args ({ 16384, 30 })
    ->Args ({ 32768, 30 });

/** One second of impulse response from one rate to another. */
void BM_Resample (benchmark::State& state)
{
    const Eigen::VectorXf response = Eigen::VectorXf::Random (state.range (0));
    const double ratio = static_cast<double> (state.range (1)) / static_cast<double> (state.range (0));

    for (auto _ : state)
        benchmark::DoNotOptimize (dsp::resampleFloat (response, ratio, 80.0).data());
}
BENCHMARK (BM_Resample)->Unit (benchmark::kMillisecond)->Args ({ 96000, 48000 })->Args ({ 96000, 44100 });

}
