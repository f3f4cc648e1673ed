// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/FIIRHandler.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dsp/FIIRDesign.h"
#include "topology/ChannelJob.h"
#include "topology/Conversion.h"

namespace veltra::topology {

namespace {

/** Copies a channel's coefficients, as many as there are. */
class FIIRCopyJob final : public ChannelJob
{
public:
    FIIRCopyJob (FIIRData channelData, FloatSlot slot)
        : ChannelJob ("veltra::topology::FIIRHandler::FIIRCopyJob::FIIRCopyJob", slot),
          data (std::move (channelData))
    {
    }

private:
    void convert (FloatSlot& slot) override
    {
        slot.write ({ data.taps.data(), static_cast<size_t> (data.taps.size()) });
        slot.write (data.sections);
    }

    const FIIRData data;
};

/** What the device has room for, for each channel. */
struct Room
{
    std::uint32_t taps;
    std::uint32_t sections;
};

/** Designs a channel's coefficients from its impulse response, which is borrowed from the source. Where that
    cannot be done, the slot holds the first samples of the response and sections of zeros. */
class FIR2FIIRJob final : public ChannelJob
{
public:
    FIR2FIIRJob (const Eigen::VectorXf& response, Room roomOfDevice, unsigned rate, std::string nameOfChannel,
                 FloatSlot slot)
        : ChannelJob ("veltra::topology::FIIRHandler::FIR2FIIRJob::FIR2FIIRJob", slot),
          fir (response),
          room (roomOfDevice),
          sampleRate (rate),
          channel (std::move (nameOfChannel))
    {
    }

private:
    void convert (FloatSlot& slot) override
    {
        slot.write ({ fir.data(), std::min<size_t> (room.taps, static_cast<size_t> (fir.size())) });

        try
        {
            slot.write (dsp::designFIIR (fir, room.taps, room.sections, sampleRate).sections);
        }
        catch (const std::invalid_argument& e)
        {
            throw std::invalid_argument ("No FIIR design for channel " + channel + " at " + std::to_string (sampleRate)
                                         + " Hz: " + e.what());
        }
    }

    const Eigen::VectorXf& fir;
    const Room room;
    const unsigned sampleRate;
    const std::string channel;
};

juce::Result checkFirstChannel (IFIIRSource& source, Room room)
{
    const auto data = source.getFIIR (0);
    const auto taps = static_cast<std::uint64_t> (data.taps.size());
    const auto sections = static_cast<std::uint64_t> (data.sections.size());

    if (taps <= room.taps && sections <= room.sections)
        return juce::Result::ok();

    return juce::Result::fail ("FIIR taps/sections mismatch: FIIR(" + std::to_string (taps) + "/"
                               + std::to_string (sections) + ") vs. Device (" + std::to_string (room.taps) + "/"
                               + std::to_string (room.sections) + ")");
}

}

FIIRHandler::FIIRHandler (ProgressFunction progressFunction) : progress (std::move (progressFunction)) {}

void FIIRHandler::createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                                    unsigned sampleRate, juce::MemoryBlock& blob, juce::PropertySet&)
{
    if (! parameters.containsKey ("NbrOfFIRTaps") || ! parameters.containsKey ("NbrOfIIRSections"))
    {
        result = juce::Result::fail ("Required topology parameters not found");
        return;
    }

    const auto channels = source.getChannelCount();
    const auto taps = countParameter (parameters, "NbrOfFIRTaps");
    const auto sections = countParameter (parameters, "NbrOfIIRSections");
    const auto size = taps && sections ? blobSize (channels, *taps + std::uint64_t { 4 } * *sections) : std::nullopt;

    if (! size)
    {
        result = juce::Result::fail (kParameterOutOfRange);
        return;
    }

    blob.reset();
    blob.setSize (*size, true);
    result = juce::Result::ok();

    const Room room { *taps, *sections };
    const auto slot = [&] (unsigned channel) {
        const auto slotSize = *size / channels;
        return FloatSlot ({ static_cast<char*> (blob.getData()) + channel * slotSize, slotSize });
    };

    if (auto* const designed = dynamic_cast<IFIIRSource*> (&source))
    {
        if (channels > 0)
            result = checkFirstChannel (*designed, room);

        for (unsigned i = 0; i < channels && result.wasOk(); ++i)
        {
            FIIRCopyJob job (designed->getFIIR (i), slot (i));
            job.runJob();
            result = job.getResult();
        }
    }
    else
    {
        // All responses are asked for here: the jobs must not meet the caches behind a source.
        std::vector<std::unique_ptr<ChannelJob>> jobs;

        for (unsigned i = 0; i < channels; ++i)
        {
            const auto& response = source.getFIR (i);

            if (response.size() == 0)
            {
                result = noFilterResponse (source.getChannelName (i), sampleRate);
                return;
            }

            jobs.push_back (
                std::make_unique<FIR2FIIRJob> (response, room, sampleRate, source.getChannelName (i), slot (i)));
        }

        result = runOnPool (jobs, progress);
    }
}

unsigned FIIRHandler::getMaxTaps (const juce::StringPairArray&, unsigned sampleRate) { return sampleRate / 2; }

float FIIRHandler::getLatencyMs (const juce::StringPairArray&, unsigned) { return 0.0f; }

std::optional<Eigen::VectorXf> FIIRHandler::readResponse (const DeviceData& data, std::uint32_t channel,
                                                          std::string& problem)
{
    const auto taps = countParameter (data.parameters, "NbrOfFIRTaps").value_or (0);
    const auto sections = countParameter (data.parameters, "NbrOfIIRSections").value_or (0);
    return responseOfFloats (data, taps, sections, channel, problem);
}

}
