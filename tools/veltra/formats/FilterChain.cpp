// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/formats/FilterChain.h"

#include <algorithm>
#include <cmath>

#include "dsp/ParallelForm.h"
#include "dsp/PreciseFft.h"
#include "tools/ExitStatus.h"

namespace veltra::host {

namespace {

/** Leaves out an end whose samples together are more than 140 dB below the whole. */
Eigen::VectorXd withoutSilentEnd (Eigen::VectorXd response)
{
    const double silent = 1e-14 * response.squaredNorm();
    double rest = 0.0;
    auto length = response.size();

    while (length > 1 && rest + response[length - 1] * response[length - 1] <= silent)
    {
        --length;
        rest += response[length] * response[length];
    }

    return response.head (length);
}

}

DescribedResponse realise (const FilterChain& chain, unsigned sampleRate, unsigned taps, std::string& notes)
{
    std::vector<dsp::Biquad> cascade;

    for (const auto& make : chain.biquads)
        cascade.push_back (make (sampleRate));

    DescribedResponse described { sampleRate, {} };

    if (chain.responses.empty())
    {
        if (const auto form = dsp::parallelForm (cascade, chain.gain, taps, sampleRate))
        {
            described.taps.assign (form->taps.begin(), form->taps.end());
            described.sections = form->sections;
            return described;
        }

        notes = "poles coincide or lie too close together for parallel sections, so that the impulse response is used";
    }

    Eigen::VectorXd response = chain.gain * dsp::impulseResponse (cascade, sampleRate);

    for (const auto& make : chain.responses)
        response = dsp::preciseConvolve (response, make (sampleRate));

    response = withoutSilentEnd (response.head (std::min<Eigen::Index> (response.size(), sampleRate)));
    described.taps.resize (static_cast<std::size_t> (response.size()));
    std::transform (response.begin(), response.end(), described.taps.begin(),
                    [] (double x) { return static_cast<float> (x); });
    return described;
}

}
