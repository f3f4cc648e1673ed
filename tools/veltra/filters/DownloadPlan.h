// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <juce_data_structures/juce_data_structures.h>

#include "filters/FilterSetsImpl.h"
#include "protocol/veltraio.pb.h"
#include "tools/veltra/filters/ArrangedDescription.h"
#include "tools/veltra/filters/ChannelMatch.h"
#include "tools/veltra/session/ReceiverChannels.h"

namespace veltra::host {

/** The filters of a set, in its order. */
std::vector<NamedFilter> namedFilters (const filters::FilterSetsImpl& set);

/** What a download would send, found out without sending anything. */
struct DownloadPlan
{
    std::uint64_t totalBytes = 0;
    std::vector<std::string> sentChannels;  ///< names of the filters that reach the receiver, in its order
    std::vector<std::string> needingLeadIn; ///< those that a dual-rate topology makes less exact for want of silence
    std::map<std::string, double>
        boosts_dB; ///< largest gain above 0 dB of filters that plain FIR plays, with their channel's
    std::vector<std::string> warnings; ///< sentences, each with a full stop
};

/** A set with its channels chosen, ordered and numbered anew. */
std::unique_ptr<filters::FilterSetsImpl> arrangedSet (const filters::FilterSetsImpl& set,
                                                      const std::vector<ArrangedChannel>& channels);

/** Goes through a download as the module will carry it out, up to the bytes: which filter goes to which channel at each
    rate, whether the sets fit the topologies, and whether they can be converted.

    @param set       as it will be handed to the module
    @param settings  of the module; nothing is dumped
    @throws          Failure (kExitConversion, kExitChannels)
*/
DownloadPlan planDownload (filters::FilterSetsImpl& set, const veltraio::Unit::Device& device,
                           const std::vector<ServedRate>& rates, juce::PropertySet& settings);

}
