// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/Biquad.h"

#include <cmath>
#include <numbers>

#include "dsp/FIIRSection.h"

namespace veltra::dsp {

namespace {

constexpr double kPi = std::numbers::pi;

double angle (double frequency, double sampleRate) { return 2.0 * kPi * frequency / sampleRate; }
double halfTangent (double frequency, double sampleRate) { return std::tan (kPi * frequency / sampleRate); }

/** The square root of the linear gain, the cookbook's A. */
double rootGain (double gain_dB) { return std::pow (10.0, gain_dB / 40.0); }

Biquad normalised (double b0, double b1, double b2, double a0, double a1, double a2)
{
    return { b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0 };
}

/** 1 - cos (omega) without the cancellation. */
double versine (double omega) { return 2.0 * std::pow (std::sin (0.5 * omega), 2); }

}

std::complex<double> Biquad::response (double omega) const
{
    const auto z1 = std::polar (1.0, -omega), z2 = z1 * z1;
    return (b0 + b1 * z1 + b2 * z2) / (1.0 + a1 * z1 + a2 * z2);
}

bool Biquad::isStable() const { return ! isUnstableSection (a1, a2); }

std::complex<double> response (std::span<const Biquad> cascade, double omega)
{
    std::complex<double> product = 1.0;

    for (const auto& section : cascade)
        product *= section.response (omega);

    return product;
}

Eigen::VectorXd impulseResponse (std::span<const Biquad> cascade, Eigen::Index length)
{
    Eigen::VectorXd samples = Eigen::VectorXd::Zero (length);

    if (length > 0)
        samples[0] = 1.0;

    for (const auto& section : cascade)
    {
        double state1 = 0.0, state2 = 0.0; // transposed direct form II

        for (auto& sample : samples)
        {
            const double in = sample;
            sample = section.b0 * in + state1;
            state1 = section.b1 * in - section.a1 * sample + state2;
            state2 = section.b2 * in - section.a2 * sample;
        }
    }

    return samples;
}

Resonance resonanceOfQ (double frequency, double q, double sampleRate)
{
    const double omega = angle (frequency, sampleRate);
    return { omega, std::sin (omega) / (2.0 * q) };
}

Resonance resonanceOfBandwidth (double frequency, double octaves, double sampleRate)
{
    const double omega = angle (frequency, sampleRate), sine = std::sin (omega);
    return { omega, sine * std::sinh (0.5 * std::numbers::ln2 * octaves * omega / sine) };
}

Resonance resonanceOfSlope (double frequency, double slope, double gain_dB, double sampleRate)
{
    const double omega = angle (frequency, sampleRate), a = rootGain (gain_dB);
    return { omega, 0.5 * std::sin (omega) * std::sqrt ((a + 1.0 / a) * (1.0 / slope - 1.0) + 2.0) };
}

Biquad peaking (const Resonance& at, double gain_dB)
{
    const double a = rootGain (gain_dB), c = std::cos (at.omega);
    return normalised (1.0 + at.alpha * a, -2.0 * c, 1.0 - at.alpha * a, 1.0 + at.alpha / a, -2.0 * c,
                       1.0 - at.alpha / a);
}

Biquad lowShelf (const Resonance& at, double gain_dB)
{
    const double a = rootGain (gain_dB), c = std::cos (at.omega), beta = 2.0 * std::sqrt (a) * at.alpha;
    return normalised (a * (a + 1.0 - (a - 1.0) * c + beta), 2.0 * a * (a - 1.0 - (a + 1.0) * c),
                       a * (a + 1.0 - (a - 1.0) * c - beta), a + 1.0 + (a - 1.0) * c + beta,
                       -2.0 * (a - 1.0 + (a + 1.0) * c), a + 1.0 + (a - 1.0) * c - beta);
}

Biquad highShelf (const Resonance& at, double gain_dB)
{
    const double a = rootGain (gain_dB), c = std::cos (at.omega), beta = 2.0 * std::sqrt (a) * at.alpha;
    return normalised (a * (a + 1.0 + (a - 1.0) * c + beta), -2.0 * a * (a - 1.0 + (a + 1.0) * c),
                       a * (a + 1.0 + (a - 1.0) * c - beta), a + 1.0 - (a - 1.0) * c + beta,
                       2.0 * (a - 1.0 - (a + 1.0) * c), a + 1.0 - (a - 1.0) * c - beta);
}

Biquad lowPass (const Resonance& at)
{
    const double c = std::cos (at.omega), b = versine (at.omega);
    return normalised (0.5 * b, b, 0.5 * b, 1.0 + at.alpha, -2.0 * c, 1.0 - at.alpha);
}

Biquad highPass (const Resonance& at)
{
    const double c = std::cos (at.omega), b = 1.0 + c;
    return normalised (0.5 * b, -b, 0.5 * b, 1.0 + at.alpha, -2.0 * c, 1.0 - at.alpha);
}

Biquad bandPass (const Resonance& at)
{
    return normalised (at.alpha, 0.0, -at.alpha, 1.0 + at.alpha, -2.0 * std::cos (at.omega), 1.0 - at.alpha);
}

Biquad notch (const Resonance& at)
{
    const double c = std::cos (at.omega);
    return normalised (1.0, -2.0 * c, 1.0, 1.0 + at.alpha, -2.0 * c, 1.0 - at.alpha);
}

Biquad allPass (const Resonance& at)
{
    const double c = std::cos (at.omega);
    return normalised (1.0 - at.alpha, -2.0 * c, 1.0 + at.alpha, 1.0 + at.alpha, -2.0 * c, 1.0 - at.alpha);
}

Biquad lowPass1 (double frequency, double sampleRate)
{
    const double t = halfTangent (frequency, sampleRate);
    return normalised (t, t, 0.0, t + 1.0, t - 1.0, 0.0);
}

Biquad highPass1 (double frequency, double sampleRate)
{
    const double t = halfTangent (frequency, sampleRate);
    return normalised (1.0, -1.0, 0.0, t + 1.0, t - 1.0, 0.0);
}

Biquad allPass1 (double frequency, double sampleRate)
{
    const double t = halfTangent (frequency, sampleRate);
    return normalised (t - 1.0, t + 1.0, 0.0, t + 1.0, t - 1.0, 0.0);
}

Biquad lowShelf1 (double frequency, double gain_dB, double sampleRate)
{
    const double t = halfTangent (frequency, sampleRate), a = rootGain (gain_dB);
    return normalised (a * a * t + a, a * a * t - a, 0.0, t + a, t - a, 0.0);
}

Biquad highShelf1 (double frequency, double gain_dB, double sampleRate)
{
    const double t = halfTangent (frequency, sampleRate), a = rootGain (gain_dB);
    return normalised (a * t + a * a, a * t - a * a, 0.0, a * t + 1.0, a * t - 1.0, 0.0);
}

Biquad linkwitzTransform (double frequency, double q, double newFrequency, double newQ, double sampleRate)
{
    const double kept = 0.5 * (frequency + newFrequency);
    const double g = 2.0 * kPi * kept / halfTangent (kept, sampleRate);
    const double now = 2.0 * kPi * frequency, then = 2.0 * kPi * newFrequency;
    return normalised (now * now + g * now / q + g * g, 2.0 * (now * now - g * g), now * now - g * now / q + g * g,
                       then * then + g * then / newQ + g * g, 2.0 * (then * then - g * g),
                       then * then - g * then / newQ + g * g);
}

Biquad generalNotch (double poleFrequency, double zeroFrequency, double poleQ, bool unityAtDc, double sampleRate)
{
    const double p = halfTangent (poleFrequency, sampleRate), z = halfTangent (zeroFrequency, sampleRate);
    const double gain = unityAtDc ? p * p / (z * z) : 1.0;
    return normalised (gain * (1.0 + z * z), -2.0 * gain * (1.0 - z * z), gain * (1.0 + z * z), 1.0 + p / poleQ + p * p,
                       -2.0 + 2.0 * p * p, 1.0 - p / poleQ + p * p);
}

}
