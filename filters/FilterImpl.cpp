// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FilterImpl.h"

#include <cmath>
#include <utility>

#include "common/Numbers.h"
#include "common/Text.h"
#include "topology/Topology.h"

namespace veltra::filters {

FilterImpl::FilterImpl (ChannelAttributes channelAttributes) : attributes (std::move (channelAttributes)) {}

const topology::FIIRData* FilterImpl::findCoefficientSet (CoefficientSetKey key) const
{
    const auto found = coefficientSets.find (key);
    return found == coefficientSets.end() ? nullptr : &found->second;
}

void FilterImpl::setCoefficientSet (CoefficientSetKey key, topology::FIIRData data)
{
    coefficientSets.insert_or_assign (key, std::move (data));
}

bool FilterImpl::readExtra (const char* extra, std::uint32_t sampleRate)
{
    const auto parameters = topology::parseParameters (juceText (extra));
    const double samples = toDouble (parameters["Delay"].toStdString());

    // What is finite in double precision need not be so as a float.
    if (! std::isfinite (static_cast<float> (samples)))
        return false;

    if (extraDelayMs == 0.0f && sampleRate != 0)
        extraDelayMs = static_cast<float> (samples * 1000.0 / sampleRate);

    return std::isfinite (extraDelayMs);
}

}
