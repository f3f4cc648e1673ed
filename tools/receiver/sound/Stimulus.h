// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <Eigen/Core>

namespace veltra::tools {

/** A stimulus of the simulated receiver. The receiver describes its stimuli in the `information` texts of its
    StimulusInfo, which a host gets by GetStimulusInformation; from them the host makes the same samples and deconvolves
    its captures.
*/
struct Stimulus
{
    enum class Kind : unsigned ///< numbered as veltraio.Stimulus
    {
        sweep,         ///< a logarithmic sine sweep, then silence
        noise,         ///< white noise
        subwooferLevel ///< sines of equal level, a twelfth of an octave apart
    };

    Kind kind = Kind::sweep;
    std::uint32_t sampleRate = 48000; ///< Hz
    double seconds = 5.0;             ///< of the signal
    double padSeconds = 0.0;          ///< of silence after it, in which the room decays
    double startFrequency = 0.0;      ///< Hz; not for noise
    double endFrequency = 0.0;        ///< Hz; not for noise
    double level_dBFS = -20.0;        ///< of the peaks for a sweep, RMS for the others
    std::uint32_t seed = 1;           ///< for noise; not 0
};

/** Reads a description: "key=value" items joined by ";", with the keys "Seconds", "PadSeconds", "StartFrequency",
    "EndFrequency", "Level_dBFS" and "Seed". Keys that are absent take these values:

        sweep            4 s and 1 s of silence, from 10 Hz to half the sample rate, -12 dBFS
        noise            5 s, -20 dBFS, seed 1
        subwooferLevel   5 s, from 30 to 90 Hz, -20 dBFS

    @param kind   a value of Stimulus::Kind
    @param error  receives what is wrong: an unknown kind, or a value out of range
    @returns      nothing after an error
*/
std::optional<Stimulus> parseStimulus (unsigned kind, std::uint32_t sampleRate, const std::string& information,
                                       std::string& error);

/** The samples of a stimulus, the same on every machine up to the rounding of the mathematical functions.
    @throws std::bad_alloc */
Eigen::VectorXf makeStimulus (const Stimulus&);

}
