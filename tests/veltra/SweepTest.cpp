// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <sstream>

#include "dsp/PreciseFft.h"
#include "tests/support/Program.h"
#include "tools/ExitStatus.h"
#include "tools/receiver/sound/NoiseSource.h"
#include "tools/receiver/sound/Stimulus.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/measure/ResponseCurve.h"
#include "tools/veltra/measure/SweepResponse.h"

namespace veltra::host {

namespace {

constexpr double kRate = 48000.0;
constexpr Eigen::Index kDelay = 4800;

/** Levels of a response from 20 Hz to 20 kHz in dB, 24 an octave; with a width, means of the power over that part of an octave. */
std::vector<double> levels (const Eigen::VectorXd& response, double width)
{
    constexpr Eigen::Index size = 1 << 18;
    const auto spectrum = dsp::preciseSpectrum (response, size);
    std::vector<double> levels_dB;

    for (int i = 0; i < 240; ++i)
    {
        const double bin = 20.0 * std::exp2 (i / 24.0) * static_cast<double> (size) / kRate;
        const auto first = static_cast<std::size_t> (std::lround (bin * std::exp2 (-0.5 * width)));
        const auto last = static_cast<std::size_t> (std::lround (bin * std::exp2 (0.5 * width)));
        double sum = 0.0;

        for (auto k = first; k <= last; ++k)
            sum += std::norm (spectrum[k]);

        levels_dB.push_back (10.0 * std::log10 (sum / static_cast<double> (last - first + 1)));
    }

    return levels_dB;
}

double difference (const std::vector<double>& a, const std::vector<double>& b)
{
    double most = 0.0;

    for (std::size_t i = 0; i < a.size(); ++i)
        most = std::max (most, std::abs (a[i] - b[i]));

    return most;
}

/** A sweep of 4 s at -12 dBFS in the left loudspeaker's room. */
class Sweep : public Program
{
protected:
    Sweep()
    {
        std::string error;
        stimulus = tools::makeStimulus (tools::parseStimulus (0, 48000, "", error).value());
        const auto samples = readMonoAudio ("examples/living-room/measured_FL_48000.wav").samples;
        room = Eigen::Map<const Eigen::VectorXf> (samples.data(), static_cast<Eigen::Index> (samples.size()))
                   .cast<double>();
    }

    /** @param bend  how much of its square is added to the loudspeaker's voltage */
    Eigen::VectorXf capture (double noise_dBFS, double bend, Eigen::Index delay = kDelay, unsigned seed = 1) const
    {
        const Eigen::VectorXd voltage = stimulus.cast<double>() + bend * stimulus.cast<double>().cwiseAbs2();
        Eigen::VectorXd heard = Eigen::VectorXd::Zero (static_cast<Eigen::Index> (7.0 * kRate));
        const auto sound = dsp::preciseConvolve (voltage, room);
        const auto length = std::min (sound.size(), heard.size() - delay);
        heard.segment (delay, length) = sound.head (length);
        tools::NoiseSource noise (noise_dBFS, seed);
        Eigen::VectorXf result = heard.cast<float>();

        for (auto& sample : result)
            sample += noise.next();

        return result;
    }

    SweepResponse evaluate (const std::vector<Eigen::VectorXf>& captures) const
    {
        return evaluateSweep (captures, stimulus, {}, 1.0);
    }

    std::vector<float> lsconv (const Eigen::VectorXf& sound, const Eigen::VectorXf& inverse)
    {
        write ("sound.pcm",
               { reinterpret_cast<const char*> (sound.data()), 4 * static_cast<std::size_t> (sound.size()) });
        write ("inverse.pcm",
               { reinterpret_cast<const char*> (inverse.data()), 4 * static_cast<std::size_t> (inverse.size()) });
        const auto ending = run ({ "lsconv", path ("sound.pcm"), path ("inverse.pcm"), path ("out.pcm") });
        EXPECT_EQ (0, ending.status) << ending.err;
        return readMonoAudio (path ("out.pcm"), { {}, parseRawFormat ("f32@48000") }).samples;
    }

    Eigen::VectorXf stimulus;
    Eigen::VectorXd room;
};

TEST_F (Sweep, TheRoomComesBackWithItsDistortionAndNoise)
{
    const auto clear = evaluate ({ capture (-400.0, 0.0) });
    EXPECT_LT (difference (levels (room, 0.0), levels (clear.samples.cast<double>(), 0.0)), 0.05);
    EXPECT_EQ (480, clear.peak);
    EXPECT_GT (clear.signalToNoise_dB, 80.0);

    const auto noisy = evaluate ({ capture (-60.0, 0.0) });
    const double noisyError = difference (levels (room, 1.0 / 12), levels (noisy.samples.cast<double>(), 1.0 / 12));
    EXPECT_LT (noisyError, 0.5);

    // A quarter of the noise's energy, whatever each take's delay.
    const auto mean = evaluate ({ capture (-60.0, 0.0, kDelay, 1), capture (-60.0, 0.0, 7001, 2),
                                  capture (-60.0, 0.0, 500, 3), capture (-60.0, 0.0, 9999, 4) });
    EXPECT_NEAR (noisy.signalToNoise_dB + 6.0, mean.signalToNoise_dB, 0.7);
    RecordProperty ("clear_dB",
                    std::to_string (difference (levels (room, 0.0), levels (clear.samples.cast<double>(), 0.0))));
    RecordProperty ("noisy_dB", std::to_string (noisyError));

    // x + 0.02 x^2 of a sweep with peaks of 0.25: the second harmonic is 0.02 / 2 * 0.25 of the first.
    const auto bent = evaluate ({ capture (-90.0, 0.02) });
    EXPECT_NEAR (20.0 * std::log10 (0.0025), bent.harmonics_dB.at (0), 1.5);
    EXPECT_LT (bent.harmonics_dB.at (1), bent.harmonics_dB[0] - 15.0);
    EXPECT_LT (difference (levels (room, 1.0 / 12), levels (bent.samples.cast<double>(), 1.0 / 12)), 0.1)
        << "distortion is kept out of the response";

    EXPECT_THROW (evaluate ({ Eigen::VectorXf::Zero (300000) }), Failure);

    // A take that breaks off before the largest sample of the other one.
    Eigen::VectorXf late = Eigen::VectorXf::Zero (300000);
    late.tail (50000) = stimulus.head (50000);
    EXPECT_TRUE (evaluate ({ late, capture (-90.0, 0.0).head (150000) }).samples.allFinite());
}

TEST_F (Sweep, AnotherProgramFindsTheSameResponse)
{
    if (run ({ "sh", "-c", "command -v lsconv" }).status != 0)
        GTEST_SKIP() << "lsconv of Debian's package drc is not there.";

    // The sweep reversed, falling by 6 dB for each octave downwards.
    const auto length = static_cast<Eigen::Index> (4.0 * kRate);
    const double growth = std::log (24000.0 / 10.0) / static_cast<double> (length);
    Eigen::VectorXf inverse (length);

    for (Eigen::Index i = 0; i < length; ++i)
        inverse[i] = stimulus[length - 1 - i] * static_cast<float> (std::exp (-growth * static_cast<double> (i)));

    const auto heard = lsconv (capture (-400.0, 0.0), inverse), own = lsconv (stimulus, inverse);
    const auto part = [&] (const std::vector<float>& samples, Eigen::Index begin,
                           Eigen::Index count) -> Eigen::VectorXd {
        return Eigen::Map<const Eigen::VectorXf> (samples.data() + begin, count).cast<double>();
    };
    const Eigen::Index reach = 80000;
    auto theirs = levels (part (heard, length - 1 + kDelay - reach, 3 * reach), 0.0);
    const auto pulse = levels (part (own, length - 1 - reach, 2 * reach), 0.0);

    for (std::size_t i = 0; i < theirs.size(); ++i)
        theirs[i] -= pulse[i];

    const double most = difference (theirs, levels (evaluate ({ capture (-400.0, 0.0) }).samples.cast<double>(), 0.0));
    RecordProperty ("difference_dB", std::to_string (most));
    EXPECT_LT (most, 0.1);
}

TEST_F (Sweep, CurvesAndTheirTextsSayWhatAResponseDoes)
{
    // Half as large and 1 ms later; then the same with an equal echo 2 ms behind it, which cancels at 250 Hz.
    Eigen::VectorXf response = Eigen::VectorXf::Zero (200);
    response[48] = 0.5f;

    for (const auto& point : curveOf (response, kRate, 0.0))
    {
        EXPECT_NEAR (-6.0206, point.magnitude_dB, 1e-3) << point.frequency_Hz;
        EXPECT_NEAR (1.0, point.groupDelay_ms, 1e-9) << point.frequency_Hz;
        EXPECT_NEAR (0.0, std::remainder (point.phase_degrees + 0.36 * point.frequency_Hz, 360.0), 1e-6);
    }

    response[144] = 0.5f;
    EXPECT_EQ (1.0, stepResponse (response)[199]);
    const auto sharp = curveOf (response, kRate, 0.0), smooth = curveOf (response, kRate, 1.0);
    EXPECT_EQ (sharp.size(), smooth.size());
    const auto at = [] (const auto& curve, double frequency) {
        return *std::ranges::min_element (
            curve, {}, [&] (const auto& point) { return std::abs (std::log (point.frequency_Hz / frequency)); });
    };
    EXPECT_LT (at (sharp, 250.0).magnitude_dB, -30.0);
    EXPECT_NEAR (-3.0, at (smooth, 4000.0).magnitude_dB, 0.3) << "powers of 1 and 0 by turns";

    write ("words.wav", "no sound");
    const auto veltra = [&] (std::vector<std::string> words) {
        words.insert (words.begin(), { VELTRA_PROGRAM, "response" });
        return run (words);
    };
    EXPECT_EQ (kExitInput, veltra ({ path ("words.wav") }).status);
    EXPECT_EQ (kExitUsage, veltra ({ "examples/living-room/FL_48000.wav", "--smooth", "12" }).status);
    EXPECT_EQ (kExitUsage, veltra ({ "examples/living-room/FL_48000.wav", "examples/living-room/FR_48000.wav", "--text",
                                     path ("two.frd") })
                               .status);
    EXPECT_EQ (0, veltra ({ "examples/living-room/FL_48000.wav", "--text", path ("one.frd") }).status);
    std::istringstream lines (read (path ("one.frd")));
    double frequency = 0.0, level_dB = 0.0, phase = 0.0;
    lines.ignore (1000, '\n').ignore (1000, '\n');
    EXPECT_TRUE (lines >> frequency >> level_dB >> phase);
    EXPECT_EQ (10.0, frequency);
    EXPECT_LT (std::abs (phase), 180.001);
}

}

}
