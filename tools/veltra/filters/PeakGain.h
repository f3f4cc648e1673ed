// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <span>
#include <string>

namespace veltra::host {

/** Largest magnitude of the frequency response of a FIR filter over all frequencies, in dB.

    The response is looked at on a grid of at least eight points for each 1/length of the sample rate. Between
    two points the magnitude of a response of this length can be higher by 0.06 dB at most (a sine that fills
    the whole length); the responses of room filters peak far more broadly.

    @param response  at least one sample
    @returns         minus infinity for silence
    @throws          std::bad_alloc
    Any thread.
*/
double peakGain_dB (std::span<const float> response);

/** Gains above 0 dB that are worth a word. */
inline constexpr double kNotableBoost_dB = 0.05;

/** One line about channels whose filters, on a receiver with plain FIR, can drive it above full scale; such a receiver does not
    scale filters down. Empty without such channels.
    @param boosts_dB  by channel */
std::string boostNote (const std::map<std::string, double>& boosts_dB);

}
