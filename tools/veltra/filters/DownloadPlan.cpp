// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/DownloadPlan.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "common/Text.h"
#include "filters/FIIRSourceImpl.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/filters/PeakGain.h"
#include "tools/veltra/report/LeadInNote.h"
#include "topology/Conversion.h"
#include "topology/Topology.h"

namespace veltra::host {

using filters::FilterImpl;
using filters::FilterSetsImpl;

namespace {

/** Keeps the first error that a conversion logs, which says more than its result. */
class PlanSource final : public filters::FIIRSourceImpl
{
public:
    using FIIRSourceImpl::FIIRSourceImpl;

    void log (int level, const std::string& message) override
    {
        if (level >= 4 && error.empty())
            error = message;
    }

    std::string error;
};

std::string at (std::uint32_t rate) { return " at " + std::to_string (rate) + " Hz"; }

Failure unfit (const std::string& reason)
{
    return { kExitConversion, "The filters do not fit this receiver: " + reason + "." };
}

/** One rate of a plan. */
class RatePlan
{
public:
    RatePlan (FilterSetsImpl& setToUse, const ServedRate& rateToUse, DownloadPlan& planToFill)
        : set (setToUse),
          rate (rateToUse),
          plan (planToFill),
          name (logText (rateToUse.topology)),
          structure (topology::findTopology (juceText (rateToUse.topology))),
          parameters (topology::parseParameters (juceText (rateToUse.information)))
    {
    }

    void make (const veltraio::Unit::Device& device, juce::PropertySet& settings)
    {
        listChannels();
        checkPlaces (device);

        if (structure == nullptr)
            throw unfit ("Topology " + name + " not supported");

        checkSets();
        convert (settings);
    }

private:
    /** As the module lists them: in the receiver's order, for each channel its filters. */
    void listChannels()
    {
        for (const auto channel : rate.channels)
            set.forEachFilter ([&] (unsigned, const FilterImpl& filter) {
                if (filter.GetChannel() == channel)
                    channels.push_back (channel);

                return true;
            });

        if (channels.empty())
            throw unfit ("none of them is for a channel that works" + at (rate.sampleRate));
    }

    /** The module takes the filters from the front of the set, whatever their numbers. */
    void checkPlaces (const veltraio::Unit::Device& device)
    {
        for (unsigned i = 0; i < channels.size(); ++i)
            if (filter (i).GetChannel() != channels[i])
                throw Failure (kExitChannels, "The receiver's channels" + at (rate.sampleRate)
                                                  + " are not the first of those at its other rates, so that "
                                                  + nameOf (channels[i], device) + " would get the filter of "
                                                  + nameOf (i) + "; load a description with the channels of "
                                                  + "one rate only (--partial).");
    }

    void checkSets()
    {
        if (structure->hasSections)
            checkSections();
        else if (! structure->dualRate)
            noteCutSets();
    }

    /** Sets with sections are copied as they are, one behind the other. */
    void checkSections()
    {
        const auto taps = static_cast<Eigen::Index> (count ("NbrOfFIRTaps"));
        const auto sections = count ("NbrOfIIRSections");
        std::string silent;

        for (unsigned i = 0; i < channels.size(); ++i)
        {
            const auto* const data = filter (i).findCoefficientSet ({ rate.sampleRate, false });

            if (data == nullptr)
            {
                silent += (silent.empty() ? "" : ", ") + nameOf (i);
                continue;
            }

            const auto what = nameOf (i) + at (rate.sampleRate) + " has " + std::to_string (data->taps.size())
                              + " taps and " + std::to_string (data->sections.size())
                              + " sections, and the receiver has " + std::to_string (taps) + " and "
                              + std::to_string (sections);
            const auto remedy = "; `veltra design --taps " + std::to_string (taps) + " --sections "
                                + std::to_string (sections) + "` makes sets of that size";

            if (data->taps.size() > taps || data->sections.size() > sections)
                throw unfit (what + remedy);

            if (! data->sections.empty() && data->taps.size() < taps)
                throw unfit (what + ": it would take the first sections for taps" + remedy);
        }

        if (! silent.empty())
            plan.warnings.push_back ("Without a set" + at (rate.sampleRate) + ", " + silent
                                     + " will be silent there: a topology FIIR gets zeros.");
    }

    void noteCutSets()
    {
        const auto taps = static_cast<Eigen::Index> (count ("NbrOfFIRTaps"));
        std::string cut;

        for (unsigned i = 0; i < channels.size(); ++i)
        {
            const auto* const data = filter (i).findCoefficientSet ({ rate.sampleRate, false });

            if (data != nullptr && data->taps.size() > taps
                && ! data->taps.tail (data->taps.size() - taps).isZero (0.0f))
                cut += (cut.empty() ? "" : ", ") + nameOf (i);
        }

        if (! cut.empty())
            plan.warnings.push_back ("The receiver runs " + std::to_string (taps) + " taps" + at (rate.sampleRate)
                                     + "; the filters of " + cut + " are longer and lose what is behind.");
    }

    void convert (juce::PropertySet& settings)
    {
        const auto handler = structure->makeHandler ({});
        PlanSource source (set, channels, rate.sampleRate);
        auto result = juce::Result::ok();
        juce::MemoryBlock blob;
        handler->createFilterData (result, source, parameters, rate.sampleRate, blob, settings);

        if (result.failed())
            throw unfit (logText (result.getErrorMessage().toStdString())
                         + (source.error.empty() ? "" : " (" + logText (source.error) + ")"));

        plan.totalBytes += blob.getSize();

        for (unsigned i = 0; i < channels.size(); ++i)
        {
            add (plan.sentChannels, i);

            if (structure->dualRate && needsLeadIn (source.getFIR (i)))
                add (plan.needingLeadIn, i);
            else if (! structure->dualRate && ! structure->hasSections)
                noteBoost (source.getFIR (i), i);
        }
    }

    void noteBoost (const Eigen::VectorXf& response, unsigned place)
    {
        const auto taps = std::min<Eigen::Index> (response.size(), count ("NbrOfFIRTaps"));

        if (taps == 0)
            return;

        const auto gain_dB = peakGain_dB ({ response.data(), static_cast<std::size_t> (taps) })
                             + static_cast<double> (filter (place).GetGaindB());

        if (gain_dB > kNotableBoost_dB)
        {
            auto& most = plan.boosts_dB[nameOf (place)];
            most = std::max (most, gain_dB);
        }
    }

    void add (std::vector<std::string>& names, unsigned place) const
    {
        if (const auto filterName = nameOf (place); std::ranges::find (names, filterName) == names.end())
            names.push_back (filterName);
    }

    std::uint32_t count (const char* key) const { return topology::countParameter (parameters, key).value_or (0); }
    const FilterImpl& filter (unsigned place) const { return *set.getFilterImpl (place); }
    std::string nameOf (unsigned place) const { return logText (filter (place).GetName(), 64); }

    static std::string nameOf (std::uint32_t number, const veltraio::Unit::Device& device)
    {
        for (const auto& channel : device.outputchannels())
            if (channel.channelindex() == number)
                return logText (channel.name(), 64);

        return "number " + std::to_string (number);
    }

    FilterSetsImpl& set;
    const ServedRate& rate;
    DownloadPlan& plan;
    const std::string name;
    const topology::TopologyEntry* const structure;
    const juce::StringPairArray parameters;
    std::vector<std::uint32_t> channels;
};

/** Gains, delays and EQ marks go by place in the list of all channels. */
void checkPlacesOfGains (const FilterSetsImpl& set, const veltraio::Unit::Device& device, DownloadPlan& plan)
{
    for (unsigned i = 0; i < set.getFilterCount() && i < static_cast<unsigned> (device.outputchannels_size()); ++i)
    {
        const auto& filter = *set.getFilterImpl (i);
        const auto& channel = device.outputchannels (static_cast<int> (i));

        if (channel.channelindex() != filter.GetChannel())
        {
            plan.warnings.push_back ("Gain, delay and EQ mark go by place in the receiver's list of channels; those of "
                                     + logText (filter.GetName(), 64) + " reach " + logText (channel.name(), 64) + ".");
            return;
        }
    }
}

}

std::vector<NamedFilter> namedFilters (const FilterSetsImpl& set)
{
    std::vector<NamedFilter> named;
    set.forEachFilter ([&] (unsigned, const FilterImpl& filter) {
        named.push_back ({ filter.GetName(), filter.GetChannel() });
        return true;
    });
    return named;
}

std::unique_ptr<FilterSetsImpl> arrangedSet (const FilterSetsImpl& set, const std::vector<ArrangedChannel>& channels)
{
    auto arranged = std::make_unique<FilterSetsImpl> (set.GetName());

    for (const auto& channel : channels)
    {
        const auto& filter = *set.getFilterImpl (static_cast<std::uint32_t> (channel.place));
        auto attributes = filter.getAttributes();
        attributes.channelNumber = channel.number - 1;
        auto& copy = arranged->addFilter (std::move (attributes));

        for (const auto& [key, data] : filter.getCoefficientSets())
            copy.setCoefficientSet (key, data);
    }

    return arranged;
}

DownloadPlan planDownload (FilterSetsImpl& set, const veltraio::Unit::Device& device,
                           const std::vector<ServedRate>& rates, juce::PropertySet& settings)
{
    DownloadPlan plan;

    if (rates.empty())
        throw unfit ("it declares no topology for any of its sample rates");

    for (auto rate = rates.begin(); rate != rates.end(); ++rate)
    {
        std::vector<std::uint32_t> toCome;
        std::transform (rate, rates.end(), std::back_inserter (toCome), [] (const auto& r) { return r.sampleRate; });
        set.keepResponsesFor (std::move (toCome));
        RatePlan (set, *rate, plan).make (device, settings);
    }

    set.keepResponsesFor ({});

    checkPlacesOfGains (set, device, plan);

    if (plan.totalBytes == 0)
        throw unfit ("it has no room for coefficients");

    return plan;
}

}
