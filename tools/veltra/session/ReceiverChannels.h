// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/veltraio.pb.h"
#include "tools/veltra/filters/ChannelMatch.h"

namespace veltra::host {

/** A sample rate at which a receiver takes filters, and the topology that it declares there. */
struct ServedRate
{
    std::uint32_t sampleRate = 0; ///< Hz
    std::string topology;
    std::string information;             ///< the topology's parameters as the receiver wrote them
    std::vector<std::uint32_t> channels; ///< the receiver's numbers
};

/** The rates that the module serves: those of the receiver's configurations for which a topology is declared. */
std::vector<ServedRate> servedRates (const veltraio::Unit::Device& device, const veltraio::TopologyInfo& info);

/** All channels that take part at one of these rates, each once, in the receiver's order. */
std::vector<ReceiverChannel> channelsOfReceiver (const veltraio::Unit::Device& device,
                                                 const std::vector<ServedRate>& rates);

}
