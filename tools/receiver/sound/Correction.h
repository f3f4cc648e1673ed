// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include <Eigen/Core>

#include "protocol/veltraio.pb.h"
#include "tools/receiver/device/FilterMemory.h"

namespace veltra::receiver {

/** What the receiver's processor does to a channel with the filter of a slot: what it plays with the bytes of its
    topology (see topology/DeviceResponse.h), and the gain and delay of its FilterChannel. A channel marked noEq gets
    gain and delay only.

    @param slot          an occupied slot
    @param topologyInfo  says what the bytes of a rate are
    @param channelIndex  number of the channel
    @param sampleRate    Hz
    @returns             the impulse response; nothing when the slot does not touch this channel at this rate
    @throws              Refusal for bytes that are not those of the rate's topology
*/
std::optional<Eigen::VectorXf> correctionResponse (const Slot& slot, const veltraio::TopologyInfo& topologyInfo,
                                                   std::uint32_t channelIndex, std::uint32_t sampleRate);

}
