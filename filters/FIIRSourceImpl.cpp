// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FIIRSourceImpl.h"

#include <utility>

#include "common/Log.h"
#include "common/Text.h"

namespace veltra::filters {

FIIRSourceImpl::FIIRSourceImpl (FilterSetsImpl& set, std::vector<std::uint32_t> deviceIds, std::uint32_t rate)
    : filterSet (set),
      channelIds (std::move (deviceIds)),
      sampleRate (rate)
{
}

const Eigen::VectorXf& FIIRSourceImpl::getFIR (unsigned i) { return filterSet.getFIR (sampleRate, i); }

float FIIRSourceImpl::getMaxGaindB (unsigned i) { return filterSet.getMaxFilterGaindB (i); }

std::uint32_t FIIRSourceImpl::getChannelId (unsigned i) { return i < channelIds.size() ? channelIds[i] : 0; }

std::string FIIRSourceImpl::getChannelName (unsigned i) { return filterSet.getChannelName (i); }

std::uint32_t FIIRSourceImpl::getChannelCount() { return static_cast<std::uint32_t> (channelIds.size()); }

void FIIRSourceImpl::log (int level, const std::string& message)
{
    switch (level)
    {
        case 0: VELTRA_LOG (TRACE, logText (message)); break;
        case 1: VELTRA_LOG (DEBUG, logText (message)); break;
        case 2: VELTRA_LOG (INFO, logText (message)); break;
        case 3: VELTRA_LOG (WARN, logText (message)); break;
        case 4: VELTRA_LOG (ERROR, logText (message)); break;
        default: break;
    }
}

topology::FIIRData FIIRSourceImpl::getFIIR (unsigned i)
{
    const auto* const filter = filterSet.getFilterImpl (i);
    const auto* const set = filter == nullptr ? nullptr : filter->findCoefficientSet ({ sampleRate, false });
    return set == nullptr ? topology::FIIRData {} : *set;
}

}
