// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/FIRHandler.h"

#include <algorithm>

#include "topology/Conversion.h"

namespace veltra::topology {

void FIRHandler::createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                                   unsigned sampleRate, juce::MemoryBlock& blob, juce::PropertySet&)
{
    if (! parameters.containsKey ("NbrOfFIRTaps"))
    {
        result = juce::Result::fail ("Required topology parameter not found");
        return;
    }

    const auto channels = source.getChannelCount();
    const auto taps = countParameter (parameters, "NbrOfFIRTaps");
    const auto size = taps ? blobSize (channels, *taps) : std::nullopt;

    if (! size)
    {
        result = juce::Result::fail (kParameterOutOfRange);
        return;
    }

    blob.reset();
    blob.setSize (*size, true);

    for (unsigned i = 0; *size > 0 && i < channels; ++i)
    {
        const auto& response = source.getFIR (i);

        if (response.size() == 0)
        {
            result = noFilterResponse (source.getChannelName (i), sampleRate);
            return;
        }

        const auto slotSize = *size / channels;
        FloatSlot slot ({ static_cast<char*> (blob.getData()) + i * slotSize, slotSize });
        slot.write ({ response.data(), static_cast<size_t> (response.size()) });
    }

    result = juce::Result::ok();
}

unsigned FIRHandler::getMaxTaps (const juce::StringPairArray& parameters, unsigned)
{
    return countParameter (parameters, "NbrOfFIRTaps").value_or (0);
}

float FIRHandler::getLatencyMs (const juce::StringPairArray&, unsigned) { return 0.0f; }

std::optional<Eigen::VectorXf> FIRHandler::readResponse (const DeviceData& data, std::uint32_t channel,
                                                         std::string& problem)
{
    const auto taps = countParameter (data.parameters, "NbrOfFIRTaps").value_or (0);
    return responseOfFloats (data, taps, 0, channel, problem);
}

}
