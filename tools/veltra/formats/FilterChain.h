// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "dsp/Biquad.h"
#include "tools/veltra/filters/FilterDescription.h"

namespace veltra::host {

/** What a file of another tool makes of one channel, before a sample rate is chosen. */
struct FilterChain
{
    double gain = 1.0;     ///< linear; negative where it inverts
    double delay_ms = 0.0; ///< for the channel's delay, not part of the filter

    /** Second-order sections one behind the other, each made for a rate in Hz; they throw Failure (kExitInput) where a
        frequency does not lie below half of it. */
    std::vector<std::function<dsp::Biquad (double)>> biquads;

    /** Impulse responses that are convolved with it, each made for a rate. */
    std::vector<std::function<Eigen::VectorXd (double)>> responses;
};

/** A chain at one rate: taps and sections that play it exactly (dsp/ParallelForm.h); where these cannot be had, or the chain
    has impulse responses, its impulse response, up to one second and without an end below -140 dB.

    @param taps   FIR taps in front of the sections; a FIIR receiver needs exactly as many as it has
    @param notes  receives a sentence when sections were asked for and are not what comes out
    @throws       Failure (kExitInput) for a section that is not stable or does not fit the rate
*/
DescribedResponse realise (const FilterChain& chain, unsigned sampleRate, unsigned taps, std::string& notes);

}
