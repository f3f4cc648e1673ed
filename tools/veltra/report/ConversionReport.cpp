// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/ConversionReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

#include "dsp/BandSplitFilters.h"
#include "tools/ExitStatus.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::host {

namespace {

constexpr double kQuietBand_dB = -60.0;

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

std::string formatted (const char* format, double value)
{
    char text[64];
    std::snprintf (text, sizeof (text), format, value);
    return text;
}

/** A difference of none at all has no level. */
std::string level (const char* format, double level_dB)
{
    auto text = formatted (format, level_dB);
    return std::isfinite (level_dB) ? text : std::string (text.size() - 4, ' ') + "none";
}

std::string bandName (double centre_Hz)
{
    return centre_Hz >= 1000.0 ? formatted ("%.0fk", centre_Hz / 1000.0) : formatted ("%.0f", std::floor (centre_Hz));
}

std::string padded (const std::string& text, std::size_t width)
{
    return std::string (width - std::min (width, text.size()), ' ') + text;
}

}

std::vector<ConvertedChannel> examineConversion (topology::IFIRSource& source, const topology::DeviceData& data)
{
    const bool dualRate = data.topologyName.startsWith ("VLFIR");
    const auto generation =
        data.topologyName == "VLFIR" ? topology::VLFIRGeneration::first : topology::VLFIRGeneration::second;
    const auto contents = dualRate ? topology::readVLFIRBlob (data.bytes, generation) : topology::VLFIRBlobContents();

    std::vector<ConvertedChannel> channels;

    for (std::uint32_t i = 0; i < data.channelCount; ++i)
    {
        std::string problem;
        auto played = topology::deviceResponse (data, i, problem);

        if (! played)
            throw Failure (kExitConversion, "The conversion cannot be read back: " + problem + ".");

        ConvertedChannel channel;
        channel.name = source.getChannelName (i);
        channel.wanted = source.getFIR (i);
        channel.played = std::move (*played);
        channel.playedDelay = topology::deviceDelay (data.topologyName);

        if (dualRate)
        {
            channel.wanted *= contents.channels[i].gain;
            channel.dualRate = dualRateOf (contents.channels[i]);
        }

        channel.error = dsp::compareResponses (channel.wanted, channel.played, channel.playedDelay, data.sampleRate);
        channels.push_back (std::move (channel));
    }

    return channels;
}

void printConversion (std::ostream& stream, const std::vector<ConvertedChannel>& channels)
{
    if (channels.empty())
        return;

    const bool dualRate = channels.front().dualRate.has_value();
    stream << "Error of what is played, in dB relative to the filter, over all and by octave:\n"
           << "channel" << (dualRate ? "  offset  delay  atten.  clipped" : "") << "   error  ";

    for (const auto& band : channels.front().error.bands)
        stream << padded (bandName (band.centre_Hz), 5);

    stream << '\n';

    for (const auto& channel : channels)
    {
        stream << channel.name << padded ("", 7 - std::min<std::size_t> (7, channel.name.size()));

        if (const auto& structure = channel.dualRate)
            stream << padded (std::to_string (structure->offset), 8) << padded (std::to_string (structure->delay), 7)
                   << padded (formatted ("%.1f", structure->attenuation_dB), 8)
                   << padded (std::to_string (structure->clipped), 9);

        stream << level ("%8.1f", channel.error.overall_dB) << "  ";

        for (const auto& band : channel.error.bands)
            stream << padded (band.level_dB < kQuietBand_dB ? "." : level ("%4.0f", band.error_dB), 5);

        stream << '\n';
    }

    stream << "A dot stands where the filter itself has less than a millionth of its energy.\n";
}

}
