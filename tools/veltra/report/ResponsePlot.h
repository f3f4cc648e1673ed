// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "dsp/ResponseError.h"

namespace veltra::host {

/** How a filter is played on a channel. */
struct ComparedResponse
{
    std::string channel;
    dsp::ResponseError error;
};

/** Draws one panel for each channel: above, the magnitudes of the filter and of what is played; below, the error
    relative to the filter in the same band. A filter that is played exactly has no error to draw; the panel says so.

    @param file  .svg or .png
    @throws      Failure (kExitUsage, kExitOutput)
*/
void plotResponses (const std::filesystem::path& file, const std::string& title, unsigned sampleRate,
                    const std::vector<ComparedResponse>& responses);

}
