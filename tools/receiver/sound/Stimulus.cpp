// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/sound/Stimulus.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "common/Numbers.h"
#include "common/Text.h"
#include "dsp/ExponentialSweep.h"
#include "tools/receiver/sound/NoiseSource.h"
#include "topology/Topology.h"

namespace veltra::tools {

namespace {

constexpr double kMaxSeconds = 60.0;
constexpr std::uint32_t kMinSampleRate = 1000, kMaxSampleRate = 1536000;

Stimulus defaults (Stimulus::Kind kind, std::uint32_t sampleRate)
{
    Stimulus stimulus;
    stimulus.kind = kind;
    stimulus.sampleRate = sampleRate;

    if (kind == Stimulus::Kind::sweep)
    {
        stimulus.seconds = 4.0;
        stimulus.padSeconds = 1.0;
        stimulus.startFrequency = 10.0;
        stimulus.endFrequency = 0.5 * sampleRate;
        stimulus.level_dBFS = -12.0;
    }
    else if (kind == Stimulus::Kind::subwooferLevel)
    {
        stimulus.startFrequency = 30.0;
        stimulus.endFrequency = 90.0;
    }

    return stimulus;
}

unsigned sampleCount (double seconds, const Stimulus& stimulus)
{
    return static_cast<unsigned> (std::lround (seconds * stimulus.sampleRate));
}

double levelGain (const Stimulus& stimulus) { return std::pow (10.0, stimulus.level_dBFS / 20.0); }

Eigen::VectorXf makeSweep (const Stimulus& stimulus)
{
    // The fade keeps the end of the sweep from clicking: 300 Hz of it, or less where the sweep is narrow.
    const auto fadeBand = std::min (300.0, 0.1 * (stimulus.endFrequency - stimulus.startFrequency));
    const auto samples = dsp::makeSweep (sampleCount (stimulus.seconds, stimulus), stimulus.startFrequency,
                                         stimulus.endFrequency, 0, 1, stimulus.sampleRate, fadeBand);
    return static_cast<float> (levelGain (stimulus))
           * Eigen::Map<const Eigen::VectorXf> (samples.data(), static_cast<Eigen::Index> (samples.size()));
}

Eigen::VectorXf makeNoise (const Stimulus& stimulus)
{
    NoiseSource noise (stimulus.level_dBFS, stimulus.seed);
    Eigen::VectorXf samples (sampleCount (stimulus.seconds, stimulus));
    std::generate (samples.begin(), samples.end(), [&] { return noise.next(); });
    return samples;
}

/** The phases keep the peaks low: M. R. Schroeder, "Synthesis of low-peak-factor signals and binary sequences with
    low autocorrelation", IEEE Transactions on Information Theory 16, 1970. */
Eigen::VectorXf makeSubwooferLevel (const Stimulus& stimulus)
{
    const auto octaves = std::log2 (stimulus.endFrequency / stimulus.startFrequency);
    const auto count = static_cast<int> (std::floor (12.0 * octaves)) + 1;
    const auto length = static_cast<Eigen::Index> (sampleCount (stimulus.seconds, stimulus));
    const Eigen::ArrayXd time =
        Eigen::ArrayXd::LinSpaced (length, 0.0, static_cast<double> (length - 1)) / stimulus.sampleRate;

    Eigen::ArrayXd sum = Eigen::ArrayXd::Zero (length);

    for (int k = 0; k < count; ++k)
    {
        const auto frequency = stimulus.startFrequency * std::exp2 (k / 12.0);
        const auto phase = -std::numbers::pi * k * (k + 1) / count;
        sum += (2.0 * std::numbers::pi * frequency * time + phase).sin();
    }

    // Each sine has an RMS value of sqrt (1/2), and together they add in power.
    return (levelGain (stimulus) / std::sqrt (0.5 * count) * sum).cast<float>().matrix();
}

}

std::optional<Stimulus> parseStimulus (unsigned kind, std::uint32_t sampleRate, const std::string& information,
                                       std::string& error)
{
    if (kind > static_cast<unsigned> (Stimulus::Kind::subwooferLevel))
    {
        error = "unknown kind of stimulus " + std::to_string (kind);
        return {};
    }

    if (sampleRate < kMinSampleRate || sampleRate > kMaxSampleRate)
    {
        error = "the sample rate is out of range";
        return {};
    }

    const auto items = topology::parseParameters (veltra::juceText (information));
    auto stimulus = defaults (static_cast<Stimulus::Kind> (kind), sampleRate);
    bool isGood = true;
    const auto read = [&] (const char* key, auto& value, double least, double most) {
        if (! items.containsKey (key))
            return;

        const auto number = toDouble (items[key].toStdString());

        if (! (number >= least && number <= most))
        {
            error = std::string (key) + " is out of range";
            isGood = false;
            return;
        }

        value = static_cast<std::remove_reference_t<decltype (value)>> (number);
    };

    const auto nyquist = 0.5 * sampleRate;
    read ("Seconds", stimulus.seconds, 0.01, kMaxSeconds);
    read ("PadSeconds", stimulus.padSeconds, 0.0, kMaxSeconds);
    read ("StartFrequency", stimulus.startFrequency, 1.0, nyquist);
    read ("EndFrequency", stimulus.endFrequency, 1.0, nyquist);
    read ("Level_dBFS", stimulus.level_dBFS, -200.0, 0.0);
    read ("Seed", stimulus.seed, 1.0, UINT32_MAX);

    if (isGood && stimulus.kind != Stimulus::Kind::noise && ! (stimulus.startFrequency < stimulus.endFrequency))
    {
        error = "StartFrequency is not below EndFrequency";
        isGood = false;
    }

    return isGood ? std::optional (stimulus) : std::nullopt;
}

Eigen::VectorXf makeStimulus (const Stimulus& stimulus)
{
    auto samples = stimulus.kind == Stimulus::Kind::sweep   ? makeSweep (stimulus)
                   : stimulus.kind == Stimulus::Kind::noise ? makeNoise (stimulus)
                                                            : makeSubwooferLevel (stimulus);
    const auto pad = static_cast<Eigen::Index> (sampleCount (stimulus.padSeconds, stimulus));
    samples.conservativeResizeLike (Eigen::VectorXf::Zero (samples.size() + pad));
    return samples;
}

}
