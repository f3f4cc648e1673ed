// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/Topology.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "dsp/BandSplitFilters.h"
#include "topology/FIIRHandler.h"
#include "topology/FIRHandler.h"
#include "topology/VLFIRHandler.h"

namespace veltra::topology {

namespace {

using VLFIR1Handler = VLFIRHandler<VFIIR::SFilterBlock, VFIIR::SFilter>;

template <class Handler>
std::unique_ptr<ITopology> make (ProgressFunction)
{
    return std::make_unique<Handler>();
}

std::unique_ptr<ITopology> makeFIIR (ProgressFunction progress)
{
    return std::make_unique<FIIRHandler> (std::move (progress));
}

constexpr auto first = VLFIRGeneration::first, second = VLFIRGeneration::second;

constexpr std::array<TopologyEntry, 4> table { {
    // name, handler, reader of the bytes, sections, delay, dual-rate generation
    { "FIIR", makeFIIR, FIIRHandler::readResponse, true, 0, std::nullopt },
    { "FIR", make<FIRHandler>, FIRHandler::readResponse, false, 0, std::nullopt },
    { "VLFIR", make<VLFIR1Handler>, VLFIR1Handler::readResponse, false, dsp::kBandSplitDelay, first },
    { "VLFIR2", make<VLFIR2Handler>, VLFIR2Handler::readResponse, false, dsp::kBandSplitDelay, second },
} };

}

std::span<const TopologyEntry> topologies() noexcept { return table; }

const TopologyEntry* findTopology (const juce::String& name) noexcept
{
    const auto found =
        std::find_if (table.begin(), table.end(), [&] (const auto& entry) { return name == entry.name; });
    return found == table.end() ? nullptr : &*found;
}

std::unique_ptr<ITopology> createTopology (const juce::String& name, ProgressFunction progress)
try
{
    const auto* const entry = findTopology (name);
    return entry == nullptr ? nullptr : entry->makeHandler (std::move (progress));
}
catch (const std::bad_alloc&)
{
    return nullptr;
}

std::optional<Eigen::VectorXf> deviceResponse (const DeviceData& data, std::uint32_t channel, std::string& problem)
{
    const auto* const entry = findTopology (data.topologyName);

    if (channel >= data.channelCount)
        problem = "there is no channel at place " + std::to_string (channel);
    else if (entry == nullptr)
        problem = "there is no topology " + data.topologyName.toStdString();
    else
        return entry->readResponse (data, channel, problem);

    return std::nullopt;
}

juce::StringPairArray parseParameters (const juce::String& text)
{
    // A pair array compares all of its keys to add one. Devices have a handful of parameters; a text with more than
    // this many is hostile or broken.
    constexpr int maxPairs = 1024;
    int pairs = 0;

    juce::StringPairArray parameters;

    for (const auto& item : juce::StringArray::fromTokens (text, ";", {}))
    {
        const auto tokens = juce::StringArray::fromTokens (item, "=", {});

        if (tokens.size() != 2)
            continue;

        parameters.set (tokens[0], tokens[1]);

        if (++pairs == maxPairs)
            break;
    }

    return parameters;
}

}
