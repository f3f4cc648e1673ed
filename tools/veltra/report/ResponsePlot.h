// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <Eigen/Core>

namespace veltra::host {

/** A filter as it was asked for and as a device plays it. */
struct ComparedResponse
{
    std::string channel;
    Eigen::VectorXf wanted;
    Eigen::VectorXf played;
    unsigned delay = 0; ///< samples by which the played response comes later
};

/** Draws one panel a channel: above the magnitude of both responses, below that of their difference, each as the
    energy in twelfths of an octave.

    @param file  .svg or .png
    @throws      Failure (kExitUsage, kExitOutput)
*/
void plotResponses (const std::filesystem::path& file, const std::string& title, unsigned sampleRate,
                    const std::vector<ComparedResponse>& responses);

}
