// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <vector>

#include "tools/veltra/formats/FilterChain.h"

namespace veltra::host {

/** The filters of a camilladsp configuration (YAML), one chain for each of its channels, by number from 0.

    Read are the pipeline's steps of type Filter and the filters Conv (Raw, Wav, Values, Dummy), Biquad, BiquadCombo, Gain and
    Delay, in the spelling of versions 1 to 4. A Conv's samples are taken to be at the rate that is asked for, as camilladsp takes
    them, except that a WAV file of another rate is refused.

    @param channelCount  how many channels there are; a step for a further one is refused
    @throws              Failure (kExitInput) that names file, line and what was found, for everything else: mixers, processors,
                         resampling, other filters, unknown parameters
*/
std::vector<FilterChain> readCamillaConfig (const std::filesystem::path& file, unsigned channelCount);

}
