// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "dsp/ResponseError.h"
#include "tools/output/Json.h"
#include "topology/Topology.h"

namespace veltra::host {

/** How a channel came out of a conversion. */
struct ConvertedChannel
{
    /** What only the dual-rate structures have. */
    struct DualRate
    {
        unsigned offset = 0;         ///< start of the high-rate cut-out in the response, samples
        unsigned delay = 0;          ///< of the high-rate path, samples
        double attenuation_dB = 0.0; ///< by which all channels were scaled down
        unsigned clipped = 0;        ///< coefficients at the end of the number range
    };

    std::string name;
    Eigen::VectorXf wanted;   ///< the filter that was asked for, scaled down as the conversion scaled it
    dsp::ResponseError error; ///< of what the device plays
    std::optional<DualRate> dualRate;
};

/** Reads the bytes of a conversion back and compares what they play with what was asked for.
    @throws  Failure (kExitConversion) for bytes that are not those of their topology
*/
std::vector<ConvertedChannel> examineConversion (topology::IFIRSource& source, const topology::DeviceData& data);

/** Prints a table with a row for each channel. */
void printConversion (std::ostream& stream, const std::vector<ConvertedChannel>& channels);

/** The same for scripts: an array with an object for each channel. */
Json objectsOf (const std::vector<ConvertedChannel>& channels);

}
