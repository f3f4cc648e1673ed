// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/LeadInNote.h"

#include "dsp/BandSplitFilters.h"
#include "topology/VLFIRSplit.h"

namespace veltra::host {

bool needsLeadIn (const Eigen::VectorXf& filter)
{
    constexpr double worthTelling_dB = -60.0; // the structure's own errors lie a little below
    return topology::leadInLoss_dB (filter) > worthTelling_dB;
}

std::string leadInNote (const std::string& condition, const std::vector<std::string>& channels)
{
    if (channels.empty())
        return {};

    std::string names;

    for (const auto& channel : channels)
        names += (names.empty() ? "" : ", ") + channel;

    return "Note: " + condition + " what it would have to play before the first sample of " + names
           + " is lost, and the filter becomes less exact; `veltra import --lead-in "
           + std::to_string (dsp::kBandSplitDelay) + "` puts enough silence in front of all channels.\n";
}

}
