// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>

namespace veltra::dsp {

/** @file
    The fixed filters of the dual-rate structure: a device runs one filter at the full sample rate Fs beside one
    at Fs / 16, and the same low-pass precedes the decimator and follows the interpolator of the latter.
    Read-only and shared by all conversions; the derived ones are worked out in double precision when the
    program starts, and rounded once.
*/

/** Factor between the two rates of the structure. */
inline constexpr unsigned kDecimation = 16;

/** The device's decimator and interpolator: a linear-phase equiripple low-pass, delay 149 samples. The pass band
    reaches to Fs/64 with 0.0066 dB of ripple, the stop band begins at Fs/32 and stays at or below -92.9 dB;
    -3 dB lies at 0.0208 Fs. The taps are design values and sum to 0.99924737.
*/
extern const std::array<float, 299> kRateFilter;

/** What remains of a unit impulse at sample 298 after kRateFilter, keeping every 16th sample, zero-stuffing by
    16, kRateFilter and a gain of 16: the part of a signal that the low-rate path does not carry.

    The decimated comb begins at tap 0 and not at the centre, so the filter is not quite symmetric; mirrored taps
    differ by up to 1.2e-05.
*/
extern const std::array<float, 597> kHighPassFilter;

/** Band limit for the low-rate part, delay 160 samples: a Kaiser-windowed sinc with beta 5. It is a Nyquist
    filter of factor 16: taps a multiple of 16 away from the centre are zero up to rounding, so that a signal
    which lies on the decimation grid passes unchanged but for the factor 1/16.
*/
extern const std::array<float, 321> kSplitFilter;

/** Delay of kRateFilter twice, once for each end of the low-rate path: how late a signal leaves the structure. */
inline constexpr unsigned kBandSplitDelay = 298;

/** Delay of kSplitFilter in samples. */
inline constexpr unsigned kSplitFilterDelay = 160;

}
