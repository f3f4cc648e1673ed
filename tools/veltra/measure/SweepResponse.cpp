// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/measure/SweepResponse.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "dsp/PreciseFft.h"
#include "tools/ExitStatus.h"

namespace veltra::host {

namespace {

constexpr double kRegularisation = 1e-7; // of the strongest bin's energy: 0.002 dB at 20 kHz for a sweep from 10 Hz
constexpr double kFadeStart = 0.92;      // of the highest frequency
constexpr int kHighestOrder = 5;
constexpr Eigen::Index kAlignmentReach = 16; // samples round the place where the peaks of two captures meet

/** The response for all delays, those below 0 at the end. */
Eigen::VectorXd deconvolved (const Eigen::VectorXf& capture, const dsp::HalfSpectrum& played, Eigen::Index size,
                             const SweepShape& shape)
{
    auto response = dsp::preciseSpectrum (capture.cast<double>(), size);
    double strongest = 0.0;

    for (const auto& bin : played)
        strongest = std::max (strongest, std::norm (bin));

    const double highest = std::min (shape.endFrequency_Hz, 0.5 * shape.sampleRate_Hz);

    for (std::size_t i = 0; i < response.size(); ++i)
    {
        const double frequency = static_cast<double> (i) * shape.sampleRate_Hz / static_cast<double> (size);
        const double fade = std::clamp ((frequency / highest - kFadeStart) / (1.0 - kFadeStart), 0.0, 1.0);
        const double gain = 0.5 + 0.5 * std::cos (std::numbers::pi * fade);
        response[i] *= gain * std::conj (played[i]) / (std::norm (played[i]) + kRegularisation * strongest);
    }

    return dsp::preciseSamples (response);
}

/** Part of a sequence without an end. */
Eigen::VectorXd cut (const Eigen::VectorXd& circle, Eigen::Index begin, Eigen::Index length)
{
    Eigen::VectorXd part (length);

    for (Eigen::Index i = 0; i < length; ++i)
        part[i] = circle[((begin + i) % circle.size() + circle.size()) % circle.size()];

    return part;
}

Eigen::Index peakOf (const Eigen::VectorXd& response, Eigen::Index latest)
{
    Eigen::Index peak = 0;

    if (! (response.head (latest).cwiseAbs().maxCoeff (&peak) > 0.0))
        throw Failure (kExitReceiver, "The receiver's microphone heard nothing of the sweep.");

    return peak;
}

/** By how much a response is later than the first one: where it resembles it most. */
Eigen::Index delayOf (const Eigen::VectorXd& response, Eigen::Index peak, const Eigen::VectorXd& first,
                      Eigen::Index firstPeak, Eigen::Index reach)
{
    const Eigen::VectorXd wanted = cut (first, firstPeak - reach, 2 * reach);
    Eigen::Index best = 0;
    double most = -std::numeric_limits<double>::infinity();

    for (auto shift = -kAlignmentReach; shift <= kAlignmentReach; ++shift)
        if (const double likeness = wanted.dot (cut (response, peak + shift - reach, 2 * reach)); likeness > most)
        {
            most = likeness;
            best = shift;
        }

    return peak + best - firstPeak;
}

}

SweepResponse evaluateSweep (std::span<const Eigen::VectorXf> captures, const Eigen::VectorXf& stimulus,
                             const SweepShape& shape, double longest_s)
{
    Eigen::Index captured = std::numeric_limits<Eigen::Index>::max(), longest = 0;

    for (const auto& capture : captures)
    {
        captured = std::min (captured, capture.size());
        longest = std::max (longest, capture.size());
    }

    // Room for all delays, positive and negative, so that nothing wraps round.
    const auto size = std::max<Eigen::Index> (4, dsp::transformSize (longest + stimulus.size()));
    const auto played = dsp::preciseSpectrum (stimulus.cast<double>(), size);
    const auto samplesOf = [&] (double seconds) {
        return static_cast<Eigen::Index> (std::lround (seconds * shape.sampleRate_Hz));
    };
    const auto preRoll = samplesOf (kPreRoll_s);

    Eigen::VectorXd all;
    Eigen::Index peak = 0;

    for (const auto& capture : captures)
    {
        const auto response = deconvolved (capture, played, size, shape);
        const auto place = peakOf (response, captured); // in the shortest capture, too, or nothing follows it there

        if (all.size() == 0)
        {
            all = response;
            peak = place;
        }
        else
        {
            all += cut (response, delayOf (response, place, all, peak, preRoll), size);
        }
    }

    all /= static_cast<double> (captures.size());

    // Behind the response, as much again shows the noise, as long as the whole sweep is in the capture there.
    const auto rest = captured - peak - samplesOf (shape.seconds);
    const bool showsNoise = rest >= 2 * preRoll;
    const auto length = std::min (samplesOf (longest_s), showsNoise ? rest / 2 : captured - peak);

    SweepResponse result;
    Eigen::VectorXd linear = cut (all, peak - preRoll, preRoll + length);
    const double noise =
        showsNoise ? cut (all, peak + length, length).squaredNorm() / static_cast<double> (length) : 0.0;
    const double energy = linear.squaredNorm();
    const double noiseEnergy = noise * static_cast<double> (linear.size());
    result.signalToNoise_dB = 10.0 * std::log10 (std::max (0.0, energy - noiseEnergy) / noiseEnergy);

    double nearer_s = 0.0;

    for (int order = 2; order <= kHighestOrder; ++order)
    {
        const double earlier_s =
            shape.seconds * std::log (order) / std::log (shape.endFrequency_Hz / shape.startFrequency_Hz);
        const auto span = std::min (length, samplesOf (earlier_s - nearer_s) - preRoll);
        const auto part = span > preRoll ? cut (all, peak - samplesOf (earlier_s) - preRoll, span) : Eigen::VectorXd();
        const double floor = noise * static_cast<double> (part.size());
        const double own = part.squaredNorm();
        result.harmonics_dB.push_back (own > 2.0 * floor ? 10.0 * std::log10 ((own - floor) / energy)
                                                         : -std::numeric_limits<double>::infinity());
        nearer_s = earlier_s;
    }

    // The window's edges, so that a cut is not heard as a step.
    const auto fade = std::max<Eigen::Index> (1, length / 10);

    for (Eigen::Index i = 0; i < preRoll / 2; ++i)
        linear[i] *=
            0.5 - 0.5 * std::cos (std::numbers::pi * static_cast<double> (i) / static_cast<double> (preRoll / 2));

    for (Eigen::Index i = 0; i < fade; ++i)
        linear[linear.size() - 1 - i] *=
            0.5 - 0.5 * std::cos (std::numbers::pi * static_cast<double> (i) / static_cast<double> (fade));

    result.samples = linear.cast<float>();
    result.peak = preRoll;
    return result;
}

}
