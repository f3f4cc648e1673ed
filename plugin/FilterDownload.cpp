// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/FilterDownload.h"

#include <algorithm>
#include <cmath>

#include "common/Log.h"
#include "common/Numbers.h"
#include "common/Text.h"
#include "plugin/ChunkSender.h"
#include "plugin/ProductProfile.h"
#include "plugin/Settings.h"

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

/** Why a command was not acknowledged, for the log. */
std::string failureOf (const CommandResult& reply)
{
    if (reply.isRefused())
        return logText (reply.refusal);

    if (reply.sent == 0)
        return "Timeout";

    return reply.sent < 0 ? "Not sent" : "Too long by " + std::to_string (reply.sent) + " bytes";
}

}

FilterDownload::FilterDownload (const DownloadTarget& downloadTarget, filters::FilterSetsImpl& setToSend,
                                std::uint32_t slotToFill, ProgressReport& progressToUse)
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
        logIfLimited (target.settings, kChunkTimeout_ms);
        logIfLimited (target.settings, kChunkAttempts);
        const auto blocks = convert();

        for (const auto& block : blocks)
            total += block.blob.getSize();

        progress.say ("");
        VELTRA_LOG (TRACE, "Starting download to endpoint device");
        announce();
        sendChannels();
        sendBlocks (blocks);
        return kResultOk;
    }
    catch (EResult result)
    {
        if (result == kResultOk)
        {
            VELTRA_LOG (INFO, "Download cancelled before the transfer");
            set.keepResponsesFor ({});
        }

        return result;
    }
}

std::vector<RateBlock> FilterDownload::convert()
{
    try
    {
        CancelWatch watch (progress);
        return convertFilterSet (target, set, watch);
    }
    catch (const std::exception& failure) // its own failures have been logged
    {
        VELTRA_LOG (ERROR, kNotStarted << failure.what());
        throw;
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
    else
        VELTRA_LOG (ERROR, "Error sending LoadFilter to endpoint device. " << failureOf (reply));

    throw kResultFailed;
}

/** The second number of the setting limits how far channels with a filter are raised; the rest of the greatest filter
    gain is subtracted from the channels without one. */
FilterDownload::Compensation FilterDownload::readCompensation() const
{
    Compensation compensation;
    compensation.isOn = target.settings.containsKey (keys::kNoEqCompensateLimits);
    const auto limits = juce::StringArray::fromTokens (target.settings.getValue (keys::kNoEqCompensateLimits), ";", "");

    if (limits.size() != 2)
        return compensation;

    float greatestGain_dB = 0.0f;
    set.forEachFilter ([&] (unsigned, const filters::FilterImpl& filter) {
        greatestGain_dB = std::max (greatestGain_dB, filter.getMaxFilterGaindB());
        return true;
    });

    auto limit_dB = static_cast<float> (toDouble (limits[1].toStdString()));

    if (! std::isfinite (limit_dB))
    {
        VELTRA_LOG (INFO, "Setting " << keys::kNoEqCompensateLimits << " is '"
                                     << logText (limits.joinIntoString (";").toStdString())
                                     << "', of which the second number counts as 0");
        limit_dB = 0.0f;
    }

    compensation.eqAdd_dB = std::min (greatestGain_dB, limit_dB);
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
    message.set_channelindex (index); // the position in the set, not the filter's own number
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

    if (reply.isAcknowledged())
        return true;

    target.lastError += reply.refusal;
    VELTRA_LOG (ERROR, "Error sending FilterChannel idx " << index << ". " << failureOf (reply));
    return false;
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
        VELTRA_LOG (ERROR, "Error sending FilterData samplerate " << block.sampleRate << " Hz. " << failureOf (reply));
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
