// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRHandler.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include "common/Numbers.h"
#include "common/SettingKeys.h"
#include "dsp/BandSplitFilters.h"
#include "dsp/RealFft.h"
#include "topology/Conversion.h"
#include "topology/VLFIRBlobReader.h"
#include "topology/VLFIRDump.h"
#include "topology/VLFIRModel.h"
#include "topology/VLFIRSplit.h"

namespace veltra::topology {

namespace {

enum LogLevel
{
    info = 2,
    warning = 3,
    error = 4
};

std::string joinChannelIds (IFIRSource& source)
{
    std::string ids;

    for (unsigned i = 0; i < source.getChannelCount(); ++i)
        ids += (i > 0 ? "," : "") + std::to_string (source.getChannelId (i));

    return ids;
}

/** A filter that boosts is scaled down so that its largest gain is 0 dB, by one amount for all channels. */
float attenuationFor (IFIRSource& source, const juce::PropertySet& settings)
{
    float attenuation = 0.0f;

    for (unsigned i = 0; i < source.getChannelCount(); ++i)
        attenuation = std::max (attenuation, source.getMaxGaindB (i));

    if (settings.containsKey (keys::kMaxFilterAttenuation))
    {
        const auto limit =
            static_cast<float> (toDouble (settings.getValue (keys::kMaxFilterAttenuation).toStdString()));
        attenuation = std::min (std::max (attenuation, 0.0f), limit);
    }

    return attenuation;
}

/** The device's channel as the record describes it, before the taps are rounded to the device's numbers. */
VLFIRChannel channelFrom (const VLFIRSplitter::Parts& parts, unsigned highRateDelay)
{
    VLFIRChannel channel;
    channel.highRateDelay = highRateDelay;
    channel.highRateTaps = parts.highRate;
    channel.lowRateTaps = parts.lowRate;
    return channel;
}

}

template <class SFilterBlock, class SFilter>
void VLFIRHandler<SFilterBlock, SFilter>::createFilterData (juce::Result& result, IFIRSource& source,
                                                            const juce::StringPairArray& parameters,
                                                            unsigned sampleRate, juce::MemoryBlock& blob,
                                                            juce::PropertySet& settings)
{
    if (! parameters.containsKey ("NbrOfFIRTaps"))
    {
        source.log (error, "VLFIR: Required parameter NbrOfFIRTaps not found");
        result = juce::Result::fail ("Required topology parameter not found");
        return;
    }

    const auto taps = countParameter (parameters, "NbrOfFIRTaps");
    const auto channelCount = source.getChannelCount();

    source.log (info, "VLFIR: SR = " + std::to_string (sampleRate) + ", Channels = " + std::to_string (channelCount)
                          + " (" + joinChannelIds (source) + "), FIR length = " + std::to_string (taps.value_or (0)));

    if (taps.value_or (0) == 0)
    {
        result = juce::Result::fail (kParameterOutOfRange);
        return;
    }

    const auto outOfMemory = [&] {
        source.log (error, "VLFIR: Failed to create BLOB");
        result = juce::Result::fail ("Out of memory");
    };

    // Before any work: a tap count far out of range would fill the memory with taps that no blob can hold, also where
    // there is no channel to put into it.
    const auto allTaps = 2 * std::uint64_t { *taps } * std::max<std::uint64_t> (channelCount, 1);

    if (vlfirBlobSize (layoutOf (SFilter::generation), channelCount, allTaps) > 4 * SFilterBlock::words)
    {
        const auto reason = std::to_string (channelCount) + " channels with " + std::to_string (*taps)
                            + " taps do not fit the device's buffer of " + std::to_string (SFilterBlock::words)
                            + " words";
        source.log (error, "VLFIR: " + reason);
        source.log (error, "VLFIR: Failed to create BLOB");
        result = juce::Result::fail (reason);
        return;
    }

    std::optional<VLFIRDump> dump;

    if (const auto path = settings.getValue (keys::kBlobPath); path.isNotEmpty())
    {
        source.log (info, "VLFIR: Dumping files to path '" + path.toStdString() + "'");
        dump.emplace (path, sampleRate);
    }

    const float attenuation = attenuationFor (source, settings);
    VLFIRSplitter splitter (*taps);
    std::vector<VLFIRSplitter::Parts> parts;
    std::vector<SFilter> records (channelCount);
    parts.reserve (channelCount); // the records borrow from it
    Eigen::VectorXf scaled;

    for (unsigned i = 0; i < channelCount; ++i)
    {
        const auto id = source.getChannelId (i);
        const auto& fir = source.getFIR (i);
        const auto name = source.getChannelName (i);

        if (fir.size() == 0)
        {
            result = noFilterResponse (name, sampleRate);
            return;
        }

        if (attenuation > 0.0f)
        {
            dsp::setSize (scaled, fir.size());
            scaled = fir * static_cast<float> (std::pow (10.0, attenuation / -20.0));
        }

        const auto& h = attenuation > 0.0f ? scaled : fir;
        const auto& part = parts.emplace_back (splitter.split (h));
        const unsigned delay = part.offset + dsp::kBandSplitDelay;

        if (part.cutOutAtLimit)
            source.log (warning, "VLFIR: Offset == maxoffset, HR filter cutout possibly failed");

        fillFilter (records[i], part.highRate, part.lowRate, delay, id, attenuation);

        if (dump)
        {
            if (part.cutOutAtLimit)
                dump->writeHighRateFull (name, splitter.fullHighRate());

            dump->writeChannel (name, h, channelFrom (part, delay));
        }
    }

    std::vector<std::uint8_t> bytes;
    int clipCount = 0;

    if (makeBlob (sampleRate, std::span<const SFilter> (records), bytes, &clipCount) < 0)
    {
        outOfMemory();
        return;
    }

    blob.replaceAll (bytes.data(), bytes.size());

    if (clipCount > 0)
        source.log (warning, "Total no of clipped coefficients: " + std::to_string (clipCount));

    if (dump)
        dump->writeBlob (bytes, *taps);

    result = juce::Result::ok();
}

template <class SFilterBlock, class SFilter>
unsigned VLFIRHandler<SFilterBlock, SFilter>::getMaxTaps (const juce::StringPairArray&, unsigned sampleRate)
{
    return sampleRate / 2;
}

template <class SFilterBlock, class SFilter>
float VLFIRHandler<SFilterBlock, SFilter>::getLatencyMs (const juce::StringPairArray& parameters, unsigned sampleRate)
{
    constexpr int defaultLatency = 256; // samples
    const int latency = parameters.containsKey ("latency") ? toInt (parameters["latency"].toRawUTF8()) : defaultLatency;
    return static_cast<float> (latency) * 1000.0f / static_cast<float> (sampleRate);
}

template <class SFilterBlock, class SFilter>
std::optional<Eigen::VectorXf> VLFIRHandler<SFilterBlock, SFilter>::readResponse (const DeviceData& data,
                                                                                  std::uint32_t channel,
                                                                                  std::string& problem)
{
    const auto contents = readVLFIRBlob (data.bytes, SFilter::generation);

    if (! contents.problems.empty())
        problem = contents.problems.front();
    else if (contents.channelCount != data.channelCount)
        problem = "the blob has " + std::to_string (contents.channelCount) + " channels instead of "
                  + std::to_string (data.channelCount);
    else
        return impulseResponse (contents.channels[channel]);

    return std::nullopt;
}

template <class SFilterBlock, class SFilter>
void VLFIRHandler<SFilterBlock, SFilter>::fillFilter (SFilter& record, const Eigen::VectorXf& highRate,
                                                      const Eigen::VectorXf& lowRate, unsigned highRateDelay,
                                                      unsigned channelId, float attenuationdB)
{
    record = {}; // the reserved word is 0, and stage gains of 0 dB leave the device's levels alone
    record.lowRateTaps = lowRate.data();
    record.lowRateTapCount = static_cast<std::uint32_t> (lowRate.size());
    record.highRateTaps = highRate.data();
    record.highRateTapCount = static_cast<std::uint32_t> (highRate.size());
    record.highRateDelay = highRateDelay;
    record.channelWord = channelId * VFIIR::channelFactor;
    record.gaindB = -static_cast<double> (attenuationdB);
}

void VLFIR2Handler::fillFilter (VFIIR2::SFilter& record, const Eigen::VectorXf& highRate,
                                const Eigen::VectorXf& lowRate, unsigned highRateDelay, unsigned channelId,
                                float attenuationdB)
{
    VLFIRHandler::fillFilter (record, highRate, lowRate, highRateDelay, channelId, attenuationdB);
    record.channelWord = channelId * VFIIR2::channelFactor;
}

template class VLFIRHandler<VFIIR::SFilterBlock, VFIIR::SFilter>;
template class VLFIRHandler<VFIIR2::SFilterBlock, VFIIR2::SFilter>;

}
