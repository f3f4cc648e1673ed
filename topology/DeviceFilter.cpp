// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/DeviceFilter.h"

#include <algorithm>

#include "dsp/PreciseFft.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::topology {

std::optional<DeviceFilter> readDeviceFilter (const DeviceData& data, std::uint32_t channel, std::string& problem)
{
    const auto* const entry = findTopology (data.topologyName);

    if (entry == nullptr || channel >= data.channelCount)
    {
        problem = entry == nullptr ? "there is no topology " + data.topologyName.toStdString()
                                   : "there is no channel at place " + std::to_string (channel);
        return std::nullopt;
    }

    if (entry->dualRate)
    {
        const auto contents = readVLFIRBlob (data.bytes, *entry->dualRate);

        if (contents.problems.empty() && channel < contents.channels.size())
        {
            DeviceFilter filter;
            filter.dualRate = contents.channels[channel];
            return filter;
        }

        problem = contents.problems.empty() ? "there is no channel at place " + std::to_string (channel)
                                            : contents.problems.front();
        return std::nullopt;
    }

    const auto taps = countParameter (data.parameters, "NbrOfFIRTaps").value_or (0);
    const auto sections = entry->hasSections ? countParameter (data.parameters, "NbrOfIIRSections").value_or (0) : 0;
    auto floats = readFloats (data, taps, sections, channel, problem);
    return floats ? std::optional (DeviceFilter { std::move (*floats), std::nullopt }) : std::nullopt;
}

Eigen::VectorXf play (const DeviceFilter& filter, const Eigen::VectorXf& in, std::uint32_t sampleRate)
{
    if (filter.dualRate)
    {
        const auto length = in.size() + impulseResponse (*filter.dualRate).size() - 1;
        Eigen::VectorXf padded = Eigen::VectorXf::Zero (length);
        padded.head (in.size()) = in;
        return simulate (padded, *filter.dualRate).head (length);
    }

    const auto& [taps, sections] = filter.floats;
    const Eigen::Index tail = sections.empty() ? std::max<Eigen::Index> (taps.size(), 1) - 1 : taps.size() + sampleRate;
    Eigen::VectorXd sum = Eigen::VectorXd::Zero (in.size() + tail);

    if (taps.size() > 0 && in.size() > 0)
        sum.head (in.size() + taps.size() - 1) = dsp::preciseConvolve (in.cast<double>(), taps.cast<double>());

    dsp::SectionBank bank;

    for (const auto& section : sections)
        bank.add (section);

    if (! bank.isEmpty())
    {
        Eigen::VectorXf late = Eigen::VectorXf::Zero (sum.size());
        late.segment (taps.size(), in.size()) = in;
        bank.addOutput (late, taps.size() + in.size(), sum);
    }

    return sum.cast<float>();
}

}
