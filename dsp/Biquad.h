// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <complex>
#include <span>

#include <Eigen/Core>

namespace veltra::dsp {

/** A second-order section of a cascade: (b0 + b1 z^-1 + b2 z^-2) / (1 + a1 z^-1 + a2 z^-2), in double precision. */
struct Biquad
{
    double b0 = 1.0, b1 = 0.0, b2 = 0.0;
    double a1 = 0.0, a2 = 0.0;

    bool operator== (const Biquad&) const = default;

    /** @param omega  2 pi frequency / sample rate */
    std::complex<double> response (double omega) const;

    bool isStable() const;
};

/** The response of a cascade. */
std::complex<double> response (std::span<const Biquad> cascade, double omega);

/** The first samples of a cascade's impulse response.
    @throws std::bad_alloc */
Eigen::VectorXd impulseResponse (std::span<const Biquad> cascade, Eigen::Index length);

/** Where a filter of the cookbook lies: the angle of its frequency, and its width as the cookbook's alpha. */
struct Resonance
{
    double omega = 0.0;
    double alpha = 0.0;
};

/** @name Filters after R. Bristow-Johnson, "Cookbook formulae for audio EQ biquad filter coefficients".
    Frequencies are in Hz, above 0 and below half the sample rate; q and bandwidth (octaves) above 0. */
///@{
Resonance resonanceOfQ (double frequency, double q, double sampleRate);
Resonance resonanceOfBandwidth (double frequency, double octaves, double sampleRate);

/** @param slope  the cookbook's S: 1 is the steepest shelf without overshoot */
Resonance resonanceOfSlope (double frequency, double slope, double gain_dB, double sampleRate);

Biquad peaking (const Resonance&, double gain_dB);
Biquad lowShelf (const Resonance&, double gain_dB);
Biquad highShelf (const Resonance&, double gain_dB);
Biquad lowPass (const Resonance&);
Biquad highPass (const Resonance&);
Biquad bandPass (const Resonance&); ///< 0 dB at its frequency
Biquad notch (const Resonance&);
Biquad allPass (const Resonance&);
///@}

/** @name Filters of first order, by the bilinear transform of the analogue ones, their frequency kept. */
///@{
Biquad lowPass1 (double frequency, double sampleRate);
Biquad highPass1 (double frequency, double sampleRate);
Biquad allPass1 (double frequency, double sampleRate);
Biquad lowShelf1 (double frequency, double gain_dB, double sampleRate);
Biquad highShelf1 (double frequency, double gain_dB, double sampleRate);
///@}

/** A closed box's resonance replaced by another one: S. Linkwitz, "Loudspeaker system design", Wireless World, 1978. The
    bilinear transform keeps the mean of both frequencies. */
Biquad linkwitzTransform (double frequency, double q, double newFrequency, double newQ, double sampleRate);

/** A notch whose zeros and poles have frequencies of their own.
    @param unityAtDc  scaled to 1 at 0 Hz instead of at half the sample rate */
Biquad generalNotch (double poleFrequency, double zeroFrequency, double poleQ, bool unityAtDc, double sampleRate);

}
