// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <juce_data_structures/juce_data_structures.h>

#include "filters/FilterSetsImpl.h"
#include "plugin/Exchange.h"
#include "plugin/ProgressReport.h"
#include "protocol/Dispatcher.h"
#include "protocol/veltraio.pb.h"
#include "veltratune_io/Result.h"

namespace veltra::plugin {

/** Where a download goes. All of it is borrowed from the device. */
struct DownloadTarget
{
    veltraio::Dispatcher& dispatcher;
    std::uint32_t deviceIndex;
    const veltraio::Unit::Device& deviceInfo;
    const veltraio::TopologyInfo& topologyInfo;
    juce::PropertySet& settings;
    std::string& lastError; ///< for the host; some stages append to it, some replace it
};

/** What one sample rate contributes to a download. */
struct RateBlock
{
    std::uint32_t sampleRate = 0;        ///< in Hz
    juce::MemoryBlock blob;              ///< as the device's filter structure loads it
    std::vector<std::uint32_t> channels; ///< the device's numbers, in the order of the blob's data
    float latency_ms = 0.0f;             ///< of the structure; nothing uses it yet
};

/** Most bytes of one download. More than any device holds: descriptions that lead here are broken or hostile, and
    the sizes in the messages have 32 bits. */
inline constexpr std::uint64_t kMaxDownloadBytes = 256u * 1024u * 1024u;

/** How the log's line about a download begins that fails before its first message. */
inline constexpr const char* kNotStarted = "Download failed before the transfer: ";

/** Converts a set for each sample rate of the device that a structure is declared for. Filters go to channels by their
    place in the set; the log has a warning where a filter has the name of another of these channels.
    @param watch  asked between channels
    @throws       veltratune_io::EResult: kResultFailed after adding the reason to the target's lastError, kResultOk when
                  the host has cancelled; std::bad_alloc */
std::vector<RateBlock> convertFilterSet (const DownloadTarget& target, filters::FilterSetsImpl& set,
                                         CancelWatch& watch);

/** Converts a filter set and moves it into a slot of a device: what is coming, the channels, then the data of each
    sample rate. The stages never go back; after a failure the device is left with what it got. Serves once, on the
    host's thread, which it blocks. */
class FilterDownload
{
public:
    FilterDownload (const DownloadTarget& downloadTarget, filters::FilterSetsImpl& setToSend, std::uint32_t slotToFill,
                    ProgressReport& progressToUse);

    /** @returns  kResultOk, also when the host cancelled, or kResultFailed
        @throws   std::bad_alloc, and whatever a conversion throws */
    veltratune_io::EResult run();

private:
    /** What a channel's gain is changed by, so that channels with and without a filter are equally loud. */
    struct Compensation
    {
        bool isOn = false;
        float eqAdd_dB = 0.0f;
        float noEqSub_dB = 0.0f;
    };

    std::vector<RateBlock> convert();
    void announce();
    Compensation readCompensation() const;
    void sendChannels();
    bool sendChannel (unsigned index, const filters::FilterImpl& filter, const Compensation& compensation);
    void sendBlocks (const std::vector<RateBlock>& blocks);
    void announceBlock (const RateBlock& block);
    void cancel();

    const DownloadTarget target;
    filters::FilterSetsImpl& set;
    const std::uint32_t slot;
    ProgressReport& progress;
    std::uint64_t total = 0; ///< bytes of all blocks
};

}
