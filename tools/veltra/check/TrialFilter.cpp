// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/check/TrialFilter.h"

#include <algorithm>
#include <new>

#include "common/Text.h"
#include "topology/Topology.h"

namespace veltra::check {

namespace {

using veltraio::Request;

constexpr std::size_t kLargestChunk = 1024; // of the plug-in
constexpr int kMostTaps = 1 << 16;          // that a receiver's own text makes a trial filter have

/** An impulse on each channel. */
class Impulses final : public topology::IFIRSource
{
public:
    /** @param taps  of the structure; the responses are longer, since sections are designed for what lies behind the taps */
    Impulses (const std::vector<std::uint32_t>& numbers, int taps)
        : channels (numbers),
          response (Eigen::VectorXf::Zero (std::clamp (taps, 0, kMostTaps) + 1024))
    {
        response[512] = 1.0f; // a dual-rate structure loses what comes earlier
    }

    const Eigen::VectorXf& getFIR (unsigned) override { return response; }
    float getMaxGaindB (unsigned) override { return 0.0f; }
    std::uint32_t getChannelId (unsigned i) override { return channels[i]; }
    std::string getChannelName (unsigned i) override { return std::to_string (channels[i]); }
    std::uint32_t getChannelCount() override { return static_cast<std::uint32_t> (channels.size()); }
    void log (int, const std::string&) override {}

private:
    const std::vector<std::uint32_t>& channels;
    Eigen::VectorXf response;
};

TrialBlock makeBlock (const veltraio::TopologyInfo::TopologyEntry& entry, std::vector<std::uint32_t> channels)
{
    TrialBlock block { entry.samplerate(), std::move (channels), {} };
    const auto parameters = topology::parseParameters (juceText (entry.information()));
    Impulses source (block.channels, parameters["NbrOfFIRTaps"].getIntValue());
    auto result = juce::Result::ok();
    juce::MemoryBlock blob;
    juce::PropertySet settings;
    const auto handler = topology::createTopology (juceText (entry.name()), {});

    if (handler == nullptr)
        throw std::bad_alloc();

    handler->createFilterData (result, source, parameters, entry.samplerate(), blob, settings);

    if (result.failed())
        throw Finding { "the topology " + logText (entry.name()) + " with " + logText (entry.information()),
                        "one that filters can be converted for", result.getErrorMessage().toStdString() };

    block.bytes.assign (static_cast<const char*> (blob.getData()), blob.getSize());
    return block;
}

}

std::vector<TrialBlock> trialFilter (const Subject& subject, bool allRates)
{
    std::vector<TrialBlock> blocks;

    for (const auto& configuration : subject.device().configurations())
        for (const auto rate : configuration.samplerates())
        {
            const auto& entries = subject.topologyInfo.topologies();
            const auto entry = std::ranges::find_if (entries, [rate] (const auto& some) {
                return some.samplerate() == rate && topology::findTopology (juceText (some.name())) != nullptr;
            });

            if (entry == entries.end() || configuration.channels().empty()
                || std::ranges::find (blocks, rate, &TrialBlock::sampleRate) != blocks.end())
                continue;

            std::vector<std::uint32_t> channels (configuration.channels().begin(), configuration.channels().end());

            if (! allRates)
                channels.resize (1);

            blocks.push_back (makeBlock (*entry, std::move (channels)));
        }

    if (blocks.empty())
        throw Skip { "no configuration has channels and a rate with a topology that the plug-in has" };

    if (! allRates)
        blocks = { *std::ranges::min_element (blocks, {}, [] (const auto& block) { return block.bytes.size(); }) };

    return blocks;
}

std::uint32_t slotToUse (const Subject& subject)
{
    if (! subject.slot)
        throw Skip { "no slot was given away with --slot" };

    return *subject.slot;
}

veltraio::Unit::FilterSlot slotNow (const Subject& subject, std::uint32_t slot)
{
    Wire wire (subject.target);
    const auto unit = wire.ask<veltraio::Unit> (request (Request::RequestType_kGetUnit));

    if (unit.devices().empty() || slot >= static_cast<std::uint32_t> (unit.devices (0).filterslots_size()))
        throw Finding { "the question for Unit", "the slots that it had before", "fewer" };

    return unit.devices (0).filterslots (static_cast<int> (slot));
}

TrialDownload::TrialDownload (Subject& theSubject, Wire& theWire, const std::vector<TrialBlock>& blocks)
    : subject (theSubject),
      wire (theWire),
      slot (slotToUse (theSubject))
{
    begin (blocks);
}

TrialDownload::TrialDownload (Subject& theSubject, Wire& theWire, const TrialBlock& block)
    : TrialDownload (theSubject, theWire, std::vector<TrialBlock> { block })
{
    announce (block);
}

TrialDownload::~TrialDownload()
{
    try
    {
        auto target = subject.target;
        target.isCancelled = nullptr;
        Wire another (target);
        veltraio::RemoveFilter message;
        message.set_deviceindex (0);
        message.set_slotindex (slot);
        another.command (message);
    }
    catch (const Finding&)
    {
        // The check of RemoveFilter reports it.
    }
}

void TrialDownload::begin (const std::vector<TrialBlock>& blocks)
{
    std::size_t channelCount = 0, total = 0;

    for (const auto& block : blocks)
    {
        channelCount = std::max (channelCount, block.channels.size());
        total += block.bytes.size();
    }

    veltraio::LoadFilter load;
    load.set_deviceindex (0);
    load.set_slotindex (slot);
    auto& filter = *load.mutable_filter();
    filter.set_name (kTrialName);
    filter.set_technology ("FIR");
    filter.set_noofchannels (static_cast<std::uint32_t> (channelCount));
    filter.set_totalnoofbytes (static_cast<std::uint32_t> (total));
    wire.command (load);

    for (std::uint32_t place = 0; place < channelCount; ++place)
    {
        veltraio::FilterChannel channel;
        channel.set_channelindex (place);
        channel.set_name ("Check");
        channel.set_gain_db (0.0f);
        channel.set_delay_ms (0.0f);
        channel.set_maxgain_db (0.0f);
        channel.set_latency_ms (0.0f);
        channel.set_noeq (false);
        wire.command (channel);
    }
}

void TrialDownload::announce (const TrialBlock& block)
{
    veltraio::FilterData data;
    data.set_deviceindex (0);
    data.set_slotindex (slot);
    data.set_samplerate (block.sampleRate);
    data.mutable_channelindices()->Add (block.channels.begin(), block.channels.end());
    data.set_sizebytes (static_cast<std::uint32_t> (block.bytes.size()));
    wire.command (data);
}

veltraio::FilterDataChunk TrialDownload::chunk (const TrialBlock& block, std::size_t offset, std::size_t size) const
{
    veltraio::FilterDataChunk message;
    message.set_deviceindex (0);
    message.set_slotindex (slot);
    message.set_dataoffset (static_cast<std::uint32_t> (offset));
    message.add_data (block.bytes.substr (std::min (offset, block.bytes.size()), size));
    return message;
}

std::size_t TrialDownload::room (std::size_t offset) const
{
    const auto limit = subject.messageLimit() == 0 ? 32767u : subject.messageLimit();
    veltraio::FilterDataChunk message;
    message.set_deviceindex (0);
    message.set_slotindex (slot);
    message.set_dataoffset (static_cast<std::uint32_t> (offset));
    message.add_data (std::string (limit, '\0'));
    auto size = limit - std::min<std::size_t> (envelopeOf (message).size() - limit, limit);

    // The length of the data takes fewer bytes itself when they are fewer.
    for (;; ++size)
    {
        message.set_data (0, std::string (size + 1, '\0'));

        if (envelopeOf (message).size() > limit)
            return size;
    }
}

void TrialDownload::sendFrom (const TrialBlock& block, std::size_t offset)
{
    while (offset < block.bytes.size())
    {
        const auto message = chunk (block, offset, std::min (kLargestChunk, room (offset)));
        wire.command (message);
        offset += message.data (0).size();
    }
}

}
