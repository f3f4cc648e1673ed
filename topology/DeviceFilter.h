// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "topology/Conversion.h"
#include "topology/VLFIRModel.h"

namespace veltra::topology {

/** A channel's filter as the device runs it: taps with sections behind them, or the two paths of a dual-rate structure. */
struct DeviceFilter
{
    FloatFilter floats; ///< empty for a dual-rate structure
    std::optional<VLFIRChannel> dualRate;
};

/** Reads the filter of one channel out of a device's data.

    @param channel  place of the channel in the data
    @param problem  receives a readable reason when the data is not that of its topology
    @throws         std::bad_alloc
*/
std::optional<DeviceFilter> readDeviceFilter (const DeviceData& data, std::uint32_t channel, std::string& problem);

/** What the device plays for a signal, with the arithmetic of its structure: taps and sections in double precision, rounded once;
    a dual-rate structure as simulate() does it.

    @returns  the signal's length and the response's behind it; of sections one second
    @throws   std::bad_alloc
    Any thread.
*/
Eigen::VectorXf play (const DeviceFilter& filter, const Eigen::VectorXf& in, std::uint32_t sampleRate);

}
