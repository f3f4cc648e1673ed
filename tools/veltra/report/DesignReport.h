// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <string>
#include <vector>

#include "dsp/FIIRDesign.h"

namespace veltra::host {

/** The same band of the two responses of a design. */
struct BandError
{
    double frequency = 0.0; ///< centre, in Hz
    double wanted_dB = 0.0; ///< mean power of the response that was wanted
    double designed_dB = 0.0;
    double error_dB = 0.0; ///< energy of the difference against that of the wanted response in this band
};

/** How well a FIIR filter plays the response that it was designed from. */
struct DesignReport
{
    double error_dB = 0.0;   ///< energy of the difference against that of the wanted response
    double poleRadius = 0.0; ///< of the outermost pole
    std::vector<BandError> octaves;
    std::vector<BandError> curve; ///< narrow bands, for a picture
};

/** Compares a design with its response, the sections' ringing behind the response's end included.

    @param wanted  the response that was designed from, at least one sample
    @throws        std::bad_alloc
    Any thread.
*/
DesignReport examineDesign (std::span<const float> wanted, const dsp::FIIRDesign& design, unsigned sampleRate);

/** A band's centre as it is commonly written: "31", "500", "2k". */
std::string octaveName (double frequency);

}
