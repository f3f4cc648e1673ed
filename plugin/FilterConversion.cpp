// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/FilterDownload.h"

#include <algorithm>
#include <map>
#include <set>

#include "common/Log.h"
#include "common/Text.h"
#include "filters/FIIRSourceImpl.h"
#include "topology/Topology.h"

namespace veltra::plugin {

using veltratune_io::kResultFailed;
using TopologyEntry = veltraio::TopologyInfo::TopologyEntry;

namespace {

/** Far above what devices have; without them a hostile description could take the host's memory and time. */
constexpr std::size_t kMaxRates = 16;
constexpr std::size_t kMaxChannels = 128;

/** Ends a conversion between channels when the host has cancelled it. */
class WatchedSource final : public filters::FIIRSourceImpl
{
public:
    WatchedSource (filters::FilterSetsImpl& set, const RateBlock& block, CancelWatch& watchToAsk)
        : FIIRSourceImpl (set, block.channels, block.sampleRate),
          watch (watchToAsk)
    {
    }

    const Eigen::VectorXf& getFIR (unsigned i) override
    {
        watch.check();
        return FIIRSourceImpl::getFIR (i);
    }

    topology::FIIRData getFIIR (unsigned i) override
    {
        watch.check();
        return FIIRSourceImpl::getFIIR (i);
    }

private:
    CancelWatch& watch;
};

[[noreturn]] void fail (const DownloadTarget& target, const std::string& words)
{
    target.lastError += words;
    VELTRA_LOG (ERROR, kNotStarted << logText (words));
    throw kResultFailed;
}

/** The device's sample rates, each once, in the order of its configurations. */
std::vector<std::uint32_t> distinctRates (const veltraio::Unit::Device& device)
{
    std::vector<std::uint32_t> rates;

    for (const auto& configuration : device.configurations())
        for (const auto rate : configuration.samplerates())
            if (std::find (rates.begin(), rates.end(), rate) == rates.end())
                rates.push_back (rate);

    return rates;
}

const TopologyEntry* findTopology (const veltraio::TopologyInfo& info, std::uint32_t rate)
{
    for (const auto& entry : info.topologies())
        if (entry.samplerate() == rate)
            return entry.name().empty() ? nullptr : &entry;

    return nullptr;
}

/** The channel numbers of the first configuration with this rate, as often as the set has filters for them. */
std::vector<std::uint32_t> channelsToServe (const DownloadTarget& target, const filters::FilterSetsImpl& set,
                                            std::uint32_t rate)
{
    std::map<std::uint32_t, std::size_t> filtersOf;
    set.forEachFilter ([&] (unsigned, const filters::FilterImpl& filter) {
        ++filtersOf[filter.GetChannel()];
        return true;
    });

    std::vector<std::uint32_t> channels;

    for (const auto& configuration : target.deviceInfo.configurations())
    {
        const auto& rates = configuration.samplerates();

        if (std::find (rates.begin(), rates.end(), rate) == rates.end())
            continue;

        for (const auto channel : configuration.channels())
        {
            const auto found = filtersOf.find (channel);
            channels.insert (channels.end(), found != filtersOf.end() ? found->second : 0, channel);

            if (channels.size() > kMaxChannels)
                fail (target, "Too many channels");
        }

        break;
    }

    return channels;
}

/** Filters go to channels by their place. Where a name shows that another channel may have been meant, the log says so. */
void warnOfNames (const DownloadTarget& target, const filters::FilterSetsImpl& set,
                  const std::vector<std::uint32_t>& served)
{
    std::map<std::uint32_t, std::string_view> names;
    std::set<juce::String> servedNames;
    const auto lowerCase = [] (std::string_view name) { return juceText (name).toLowerCase(); };

    for (const auto& info : target.deviceInfo.outputchannels())
        names.emplace (info.channelindex(), info.name());

    for (const auto channel : served)
        servedNames.insert (lowerCase (names[channel]));

    for (std::uint32_t place = 0; place < std::min<std::size_t> (served.size(), set.getFilterCount()); ++place)
    {
        const auto filterName = set.getChannelName (place);
        const auto channelName = names[served[place]];

        if (! filterName.empty() && lowerCase (filterName) != lowerCase (channelName)
            && servedNames.contains (lowerCase (filterName)))
            VELTRA_LOG (WARN, "Filter '" << logText (filterName) << "' goes to channel " << served[place] << " '"
                                         << logText (channelName)
                                         << "': filters go by their place in the description, not by name");
    }
}

RateBlock convertRate (const DownloadTarget& target, filters::FilterSetsImpl& set, const TopologyEntry& entry,
                       CancelWatch& watch)
{
    RateBlock block;
    block.sampleRate = entry.samplerate();
    block.channels = channelsToServe (target, set, block.sampleRate);

    if (block.channels.empty())
        fail (target, "No supported filters");

    const auto name = juceText (entry.name());
    const auto topology = topology::createTopology (name, {});

    if (topology == nullptr)
        fail (target, "Topology " + toValidUtf8 (entry.name()) + " not supported");

    const auto parameters = topology::parseParameters (juceText (entry.information()));
    block.latency_ms = topology->getLatencyMs (parameters, block.sampleRate);

    WatchedSource source (set, block, watch);
    auto result = juce::Result::ok();
    topology->createFilterData (result, source, parameters, block.sampleRate, block.blob, target.settings);

    if (result.failed())
        fail (target, result.getErrorMessage().toStdString());

    return block;
}

}

std::vector<RateBlock> convertFilterSet (const DownloadTarget& target, filters::FilterSetsImpl& set, CancelWatch& watch)
{
    std::vector<RateBlock> blocks;
    std::set<std::vector<std::uint32_t>> checked; // rates mostly serve the same channels: one warning for all
    std::uint64_t total = 0;

    auto rates = distinctRates (target.deviceInfo);
    std::erase_if (rates, [&] (auto rate) { return findTopology (target.topologyInfo, rate) == nullptr; });

    if (rates.size() > kMaxRates)
        fail (target, "Too many sample rates");

    for (auto rate = rates.begin(); rate != rates.end(); ++rate)
    {
        set.keepResponsesFor ({ rate, rates.end() });
        blocks.push_back (convertRate (target, set, *findTopology (target.topologyInfo, *rate), watch));
        total += blocks.back().blob.getSize();

        if (checked.insert (blocks.back().channels).second)
            warnOfNames (target, set, blocks.back().channels);

        if (total > kMaxDownloadBytes)
            fail (target, "Filter data too large");
    }

    set.keepResponsesFor ({});

    if (total == 0)
        fail (target, "No topology supported");

    return blocks;
}

}
