// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include <Eigen/Core>

#include "protocol/veltraio.pb.h"
#include "tools/receiver/device/FilterMemory.h"

namespace veltra::receiver {

/** The impulse response of a channel with the filter of a slot: that of the bytes in the receiver's topology (see
    topology/Topology.h), with gain and delay of the FilterChannel. A channel marked noEq has gain and delay only.

    @param slot          an occupied slot
    @param topologyInfo  the format of the bytes at each rate
    @param channelIndex  number of the channel
    @param sampleRate    Hz
    @returns             nothing when the slot has no filter for this channel at this rate
    @throws              Refusal for bytes that do not fit the rate's topology
*/
std::optional<Eigen::VectorXf> correctionResponse (const Slot& slot, const veltraio::TopologyInfo& topologyInfo,
                                                   std::uint32_t channelIndex, std::uint32_t sampleRate);

}
