// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/veltra/filters/FilterDescription.h"
#include "tools/veltra/report/DesignReport.h"

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
    DesignReport report;
    double seconds = 0.0; ///< the design alone
};

/** Replaces each FIR response of a description by its FIIR design, as many at once as the machine has processors.
    The module designs from one second of a response, filled up with zeros; so does this.

    @param progress  called on this thread with the fraction of designs that are done
    @returns         one entry a response, in the description's order
    @throws          Failure (kExitConversion) that names the first response that cannot be designed
*/
std::vector<DesignedResponse> designFilters (FilterDescription& description, const DesignSize& size,
                                             const std::function<void (double)>& progress);

}
