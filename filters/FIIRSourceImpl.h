// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "filters/FilterSetsImpl.h"
#include "topology/FilterSource.h"

namespace veltra::filters {

/** A filter set as the topologies see it at one sample rate.

    The list of channel ids decides how many channels there are; places run over the filters of the set in its
    order, whatever their channel numbers are. One thread at a time.
*/
class FIIRSourceImpl : public topology::IFIIRSource
{
public:
    /** @param set          borrowed; must outlast the source
        @param deviceIds    the device's channel numbers, one for each channel of the source
        @param rate         in Hz
    */
    FIIRSourceImpl (FilterSetsImpl& set, std::vector<std::uint32_t> deviceIds, std::uint32_t rate);

    /** FilterSetsImpl::getFIR at the source's rate. */
    const Eigen::VectorXf& getFIR (unsigned i) override;

    float getMaxGaindB (unsigned i) override;

    /** 0 for a place beyond the last. */
    std::uint32_t getChannelId (unsigned i) override;

    std::string getChannelName (unsigned i) override;
    std::uint32_t getChannelCount() override;
    void log (int level, const std::string& message) override;

    /** The coefficients as the filter description gives them at the source's rate: never resampled. */
    topology::FIIRData getFIIR (unsigned i) override;

private:
    FilterSetsImpl& filterSet;
    const std::vector<std::uint32_t> channelIds;
    const std::uint32_t sampleRate;
};

}
