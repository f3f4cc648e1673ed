// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/sound/Correction.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "common/Text.h"
#include "tools/receiver/device/Messages.h"
#include "topology/Topology.h"

namespace veltra::receiver {

namespace {

constexpr double kMaxDelay_ms = 1000.0;

/** The topology by which the device reads what it holds for a sample rate. */
const veltraio::TopologyInfo::TopologyEntry& topologyAt (const veltraio::TopologyInfo& info, std::uint32_t sampleRate)
{
    const auto entry = std::find_if (info.topologies().begin(), info.topologies().end(),
                                     [&] (const auto& candidate) { return candidate.samplerate() == sampleRate; });

    if (entry == info.topologies().end())
        throw Refusal ("No topology at " + std::to_string (sampleRate) + " Hz");

    return *entry;
}

Eigen::VectorXf equalizer (const SlotBlock& block, const veltraio::TopologyInfo& info, std::size_t place)
{
    const auto& entry = topologyAt (info, block.sampleRate);
    const topology::DeviceData data { veltra::juceText (entry.name()),
                                      topology::parseParameters (veltra::juceText (entry.information())),
                                      block.sampleRate,
                                      static_cast<std::uint32_t> (block.channelIndices.size()),
                                      { reinterpret_cast<const std::uint8_t*> (block.bytes.data()),
                                        block.bytes.size() } };
    std::string problem;
    const auto response = topology::deviceResponse (data, static_cast<std::uint32_t> (place), problem);

    if (! response)
        throw Refusal ("The filter at " + std::to_string (block.sampleRate) + " Hz cannot be applied: " + problem);

    return *response;
}

}

std::optional<Eigen::VectorXf> correctionResponse (const Slot& slot, const veltraio::TopologyInfo& topologyInfo,
                                                   std::uint32_t channelIndex, std::uint32_t sampleRate)
{
    const auto* block = slot.findBlock (sampleRate);

    if (block == nullptr)
        return {};

    const auto& indices = block->channelIndices;
    const auto found = std::find (indices.begin(), indices.end(), channelIndex);

    if (found == indices.end())
        return {};

    const auto place = static_cast<std::size_t> (found - indices.begin());

    const auto channel = std::find_if (slot.channels.begin(), slot.channels.end(),
                                       [&] (const auto& candidate) { return candidate.channelindex() == place; });

    if (channel == slot.channels.end())
        return {};

    Eigen::VectorXf response = Eigen::VectorXf::Ones (1);

    if (! channel->noeq())
        response = equalizer (*block, topologyInfo, place);

    const auto gain = static_cast<float> (std::pow (10.0, channel->gain_db() / 20.0));
    const auto delay_ms = std::clamp<double> (channel->delay_ms(), 0.0, kMaxDelay_ms);
    const auto delay = static_cast<Eigen::Index> (std::lround (delay_ms * sampleRate / 1000.0));
    Eigen::VectorXf result = Eigen::VectorXf::Zero (delay + response.size());
    result.tail (response.size()) = gain * response;
    return result;
}

}
