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

void FilterImpl::readExtra (const char* extra, std::uint32_t sampleRate)
{
    if (extraDelayMs != 0.0f || sampleRate == 0)
        return;

    const auto parameters = topology::parseParameters (juce::String::fromUTF8 (toValidUtf8 (extra).c_str()));
    const double samples = toDouble (parameters["Delay"].toRawUTF8());

    if (std::isfinite (samples))
        extraDelayMs = static_cast<float> (samples * 1000.0 / sampleRate);
}

}
