#include "topology/FIIRHandler.h"

#include <string>
#include <utility>

#include "topology/ChannelJob.h"
#include "topology/Conversion.h"
#include "topology/FloatSlot.h"

namespace veltra::topology {

namespace {

/** Copies a channel's coefficients, as many as there are. */
class FIIRCopyJob final : public ChannelJob
{
public:
    FIIRCopyJob (FIIRData channelData, FloatSlot slot)
        : ChannelJob ("veltra::topology::FIIRHandler::FIIRCopyJob::FIIRCopyJob", slot), data (std::move (channelData))
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

juce::Result checkFirstChannel (IFIIRSource& source, Room room)
{
    const auto data = source.getFIIR (0);
    const auto taps = static_cast<std::uint64_t> (data.taps.size());
    const auto sections = static_cast<std::uint64_t> (data.sections.size());

    if (taps <= room.taps && sections <= room.sections)
        return juce::Result::ok();

    return juce::Result::fail ("FIIR taps/sections mismatch: FIIR(" + std::to_string (taps) + "/" + std::to_string (sections)
                               + ") vs. Device (" + std::to_string (room.taps) + "/" + std::to_string (room.sections) + ")");
}

}

FIIRHandler::FIIRHandler (ProgressFunction progressFunction) : progress (std::move (progressFunction))
{
}

void FIIRHandler::createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                                    unsigned, juce::MemoryBlock& blob, juce::PropertySet&)
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

    const auto slot = [&] (unsigned channel)
    {
        const auto slotSize = *size / channels;
        return FloatSlot ({ static_cast<char*> (blob.getData()) + channel * slotSize, slotSize });
    };

    if (auto* const designed = dynamic_cast<IFIIRSource*> (&source))
    {
        if (channels > 0)
            result = checkFirstChannel (*designed, { *taps, *sections });

        for (unsigned i = 0; i < channels && result.wasOk(); ++i)
        {
            FIIRCopyJob job (designed->getFIIR (i), slot (i));
            job.runJob();
            result = job.getResult();
        }
    }
    else
    {
        result = juce::Result::fail ("FIIR topology needs a source with FIIR coefficients");
    }
}

unsigned FIIRHandler::getMaxTaps (const juce::StringPairArray&, unsigned sampleRate)
{
    return sampleRate / 2;
}

float FIIRHandler::getLatencyMs (const juce::StringPairArray&, unsigned)
{
    return 0.0f;
}

}
