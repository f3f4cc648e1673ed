#pragma once

#include <cstdint>
#include <optional>

#include <Eigen/Core>

#include "protocol/veltraio.pb.h"
#include "tools/receiver/FilterMemory.h"

namespace veltra::receiver {

/** What the receiver's processor does to a channel with the filter of a slot: the filter of the channel's taps and
    sections, and the gain and delay of its FilterChannel. A channel marked noEq gets gain and delay only.

    @param slot          an occupied slot
    @param topologyInfo  says what the bytes of a rate are: those of FIR and FIIR can be applied
    @param channelIndex  number of the channel
    @param sampleRate    Hz
    @returns             the impulse response; nothing when the slot does not touch this channel at this rate
    @throws              Refusal for bytes of another topology, or of a size that does not fit it
*/
std::optional<Eigen::VectorXf> correctionResponse (const Slot& slot, const veltraio::TopologyInfo& topologyInfo,
                                                   std::uint32_t channelIndex, std::uint32_t sampleRate);

}
