// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/ConversionReport.h"

#include <cmath>
#include <ostream>

#include "dsp/BandSplitFilters.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/report/ErrorTable.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::host {

namespace {

unsigned countClipped (const Eigen::VectorXf& taps)
{
    // A conversion writes the most negative word for whatever it clips, at either end.
    return static_cast<unsigned> ((taps.array() == -4.0f).count());
}

ConvertedChannel::DualRate dualRateOf (const topology::VLFIRChannel& channel)
{
    return { channel.highRateDelay - dsp::kBandSplitDelay, channel.highRateDelay, -20.0 * std::log10 (channel.gain),
             countClipped (channel.highRateTaps) + countClipped (channel.lowRateTaps) };
}

}

std::vector<ConvertedChannel> examineConversion (topology::IFIRSource& source, const topology::DeviceData& data)
{
    const auto& structure = *topology::findTopology (data.topologyName);
    const auto contents =
        structure.dualRate ? topology::readVLFIRBlob (data.bytes, *structure.dualRate) : topology::VLFIRBlobContents();

    std::vector<ConvertedChannel> channels;

    for (std::uint32_t i = 0; i < data.channelCount; ++i)
    {
        std::string problem;
        const auto played = topology::deviceResponse (data, i, problem);

        if (! played)
            throw Failure (kExitConversion, "The conversion cannot be read back: " + problem + ".");

        ConvertedChannel channel;
        channel.name = source.getChannelName (i);
        channel.wanted = source.getFIR (i);

        if (structure.dualRate)
        {
            channel.wanted *= contents.channels[i].gain;
            channel.dualRate = dualRateOf (contents.channels[i]);
        }

        channel.error = dsp::compareResponses (channel.wanted, *played, structure.delay, data.sampleRate);
        channels.push_back (std::move (channel));
    }

    return channels;
}

void printConversion (std::ostream& stream, const std::vector<ConvertedChannel>& channels)
{
    if (channels.empty())
        return;

    std::vector<std::string> headings;
    std::vector<ErrorRow> rows;

    if (channels.front().dualRate)
        headings = { "offset", "delay", "atten.", "clipped" };

    for (const auto& channel : channels)
    {
        rows.push_back ({ channel.name, {}, channel.error });

        if (const auto& structure = channel.dualRate)
            rows.back().details = { std::to_string (structure->offset), std::to_string (structure->delay),
                                    fixedText (structure->attenuation_dB, 1), std::to_string (structure->clipped) };
    }

    printErrors (stream, headings, rows);
    stream << kErrorLegend;
}

Json objectsOf (const std::vector<ConvertedChannel>& channels)
{
    auto objects = Json::array();

    for (const auto& channel : channels)
    {
        Json object { { "channel", channel.name }, { "error", objectOf (channel.error) } };

        if (const auto& structure = channel.dualRate)
            object["dual_rate"] = { { "offset_samples", structure->offset },
                                    { "delay_samples", structure->delay },
                                    { "attenuation_dB", structure->attenuation_dB },
                                    { "clipped", structure->clipped } };

        objects.push_back (std::move (object));
    }

    return objects;
}

}
