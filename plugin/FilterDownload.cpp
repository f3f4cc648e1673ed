// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/FilterDownload.h"

#include <algorithm>
#include <cmath>

#include "common/Log.h"
#include "common/Numbers.h"
#include "common/Text.h"
#include "plugin/ChunkSender.h"
#include "plugin/ProductProfile.h"
#include "plugin/Text.h"

namespace veltra::plugin {

using veltratune_io::EResult;
using veltratune_io::kResultFailed;
using veltratune_io::kResultOk;

namespace {

constexpr std::uint32_t kLoadFilterTimeout_ms = 5000;
constexpr std::uint32_t kFilterChannelTimeout_ms = 1000;
constexpr std::uint32_t kFilterDataTimeout_ms = 5000;
constexpr std::uint32_t kCancelTimeout_ms = 3000;

/** The name as a slot shows it. */
std::string slotName (const char* projectName)
{
    const auto name = toValidUtf8 (projectName != nullptr ? projectName : "");
    const auto cut = firstCharacters (name, kProfile.maxFilterNameLength);

    if (cut.size() < name.size())
        VELTRA_LOG (INFO, "Truncating filter name to max " << kProfile.maxFilterNameLength << " chars");

    return std::string (cut);
}

}

FilterDownload::FilterDownload (const DownloadTarget& downloadTarget, filters::FilterSetsImpl& setToSend,
                                std::uint32_t slotToFill, Progress& progressToUse)
    : target (downloadTarget),
      set (setToSend),
      slot (slotToFill),
      progress (progressToUse)
{
}

EResult FilterDownload::run()
{
    try
    {
        const auto blocks = convertFilterSet (target, set);

        for (const auto& block : blocks)
            total += block.blob.getSize();

        progress.say ("");
        VELTRA_LOG (TRACE, "Starting download to endpoint device");
        announce();
        sendChannels();
        sendBlocks (blocks);
        return kResultOk;
    }
    catch (EResult failure)
    {
        return failure;
    }
}

void FilterDownload::announce()
{
    veltraio::LoadFilter message;
    message.set_deviceindex (target.deviceIndex);
    message.set_slotindex (slot);
    auto& filter = *message.mutable_filter();
    filter.set_name (slotName (set.GetName()));
    filter.set_technology (set.GetTechnology());
    filter.set_noofchannels (set.getFilterCount());
    filter.set_totalnoofbytes (static_cast<std::uint32_t> (total));

    const auto reply = sendCommand (target.dispatcher, message, kLoadFilterTimeout_ms);

    if (reply.isAcknowledged())
        return;

    if (reply.isRefused())
    {
        target.lastError = reply.refusal;
        VELTRA_LOG (ERROR, "Error sending LoadFilter to endpoint device. " << logText (reply.refusal));
    }
    else if (reply.sent == 0)
    {
        target.lastError = "Timeout sending LoadFilter";
        VELTRA_LOG (ERROR, "Timeout sending LoadFilter to endpoint device");
    }

    throw kResultFailed;
}

/** The setting has two numbers, of which the second limits how far channels with a filter are raised; the rest of
    the greatest filter gain is taken from the channels without one. */
FilterDownload::Compensation FilterDownload::readCompensation() const
{
    Compensation compensation;
    compensation.isOn = target.settings.containsKey ("NoEqCompensateLimits");
    const auto limits = juce::StringArray::fromTokens (target.settings.getValue ("NoEqCompensateLimits"), ";", "");

    if (limits.size() != 2)
        return compensation;

    float greatestGain_dB = 0.0f;
    set.forEachFilter ([&] (unsigned, const filters::FilterImpl& filter) {
        greatestGain_dB = std::max (greatestGain_dB, filter.getMaxFilterGaindB());
        return true;
    });

    const auto limit_dB = static_cast<float> (toDouble (limits[1].toStdString()));
    compensation.eqAdd_dB = std::min (greatestGain_dB, std::isfinite (limit_dB) ? limit_dB : 0.0f);
    compensation.noEqSub_dB = greatestGain_dB - compensation.eqAdd_dB;
    return compensation;
}

void FilterDownload::sendChannels()
{
    const auto compensation = readCompensation();

    if (! set.forEachFilter ([&] (unsigned index, const filters::FilterImpl& filter) {
            return sendChannel (index, filter, compensation);
        }))
        throw kResultFailed;
}

bool FilterDownload::sendChannel (unsigned index, const filters::FilterImpl& filter, const Compensation& compensation)
{
    const auto& channels = target.deviceInfo.outputchannels();
    const bool isOfDevice = index < static_cast<unsigned> (channels.size());
    const bool statesNoEq = isOfDevice && channels[static_cast<int> (index)].has_noeq();
    const bool noEq = statesNoEq && channels[static_cast<int> (index)].noeq();

    // The field's presence decides, whatever it says.
    const float change_dB = statesNoEq ? -compensation.noEqSub_dB : compensation.eqAdd_dB;
    const float gain_dB = filter.GetGaindB() + (compensation.isOn ? change_dB : 0.0f);

    veltraio::FilterChannel message;
    message.set_channelindex (index); // the place in the set, not the filter's own number
    message.set_name (filter.GetName());
    message.set_gain_db (gain_dB);
    message.set_delay_ms (filter.GetDelayMs());
    message.set_maxgain_db (filter.getMaxFilterGaindB());
    message.set_latency_ms (filter.getExtraDelayMs());
    message.set_noeq (noEq);

    VELTRA_LOG (INFO, "Sending FilterChannel idx " << index << ", name '" << logText (filter.GetName()) << "'"
                                                   << ", gain " << gain_dB << " dB (orig. " << filter.GetGaindB()
                                                   << " dB), max " << filter.getMaxFilterGaindB() << " dB"
                                                   << ", delay " << filter.GetDelayMs() << " ms"
                                                   << ", latency " << filter.getExtraDelayMs() << " ms"
                                                   << ", EQ " << (noEq ? "NO" : "YES"));

    const auto reply = sendCommand (target.dispatcher, message, kFilterChannelTimeout_ms);
    target.lastError += reply.isAcknowledged() ? std::string() : reply.refusal;
    return reply.isAcknowledged();
}

void FilterDownload::sendBlocks (const std::vector<RateBlock>& blocks)
{
    ChunkSender chunks (target, slot, total, progress);

    for (const auto& block : blocks)
    {
        announceBlock (block);

        if (! chunks.send (block.blob))
        {
            cancel();
            break;
        }
    }
}

void FilterDownload::announceBlock (const RateBlock& block)
{
    veltraio::FilterData message;
    message.set_deviceindex (target.deviceIndex);
    message.set_slotindex (slot);
    message.set_samplerate (block.sampleRate);
    message.mutable_channelindices()->Add (block.channels.begin(), block.channels.end());
    message.set_sizebytes (static_cast<std::uint32_t> (block.blob.getSize()));

    VELTRA_LOG (TRACE, "Sending FilterData samplerate " << block.sampleRate << " Hz"
                                                        << ", size " << block.blob.getSize() << " bytes");

    const auto reply = sendCommand (target.dispatcher, message, kFilterDataTimeout_ms);

    if (! reply.isAcknowledged())
    {
        target.lastError += reply.refusal;
        throw kResultFailed;
    }
}

void FilterDownload::cancel()
{
    veltraio::DownloadCancelled message;
    message.set_deviceindex (0); // always these, whatever the device and slot
    message.set_slotindex (0);
    sendCommand (target.dispatcher, message, kCancelTimeout_ms);
}

}
