// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "dsp/ResponseError.h"
#include "tools/veltra/filters/FilterDescription.h"

namespace veltra::host {

/** What a receiver of the FIIR technology has room for. */
struct DesignSize
{
    unsigned taps = 0; ///< 0 stands for the usual number, the sample rate divided by 48
    unsigned sections = 30;
};

/** The outcome of one design. */
struct DesignedResponse
{
    std::string channel;
    unsigned sampleRate = 0; ///< Hz
    unsigned taps = 0;
    double poleRadius = 0.0;  ///< of the outermost pole
    double seconds = 0.0;     ///< the design alone
    dsp::ResponseError error; ///< of what is played, the sections' ringing behind the response's end included
};

/** Replaces each FIR response of a description by its FIIR design, as many at once as the machine has processors.
    As in the module, a design is made from one second of a response, filled up with zeros. Its numerators are then
    fitted once more (dsp/NumeratorFit.h), which the module does not do.

    @param progress  called on this thread with the fraction of designs that are done
    @returns         one entry a response, in the description's order; what has sections already stays as it is
    @throws          Failure (kExitConversion) that names the first response that cannot be designed
*/
std::vector<DesignedResponse> designFilters (FilterDescription& description, const DesignSize& size,
                                             const std::function<void (double)>& progress);

}
