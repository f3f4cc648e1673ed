// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <juce_data_structures/juce_data_structures.h>

#include "topology/FilterSource.h"

namespace veltra::topology {

/** Turns a filter source into the bytes that one filter structure of a device loads.

    An object is made for one sample rate of one download and keeps no state between calls.
*/
class ITopology
{
public:
    virtual ~ITopology() = default;

    /** The conversion. Blocks until it is done; may use worker threads, which have ended when it returns.

        @param result      receives ok, or a failure with words for a person
        @param source      channels and their responses at sampleRate
        @param parameters  the device's parameter string for this rate, as parseParameters reads it
        @param sampleRate  in Hz
        @param blob        receives the bytes; of no meaning after a failure
        @param settings    the plug-in's settings
        @throws            std::bad_alloc
    */
    virtual void createFilterData (juce::Result& result, IFIRSource& source, const juce::StringPairArray& parameters,
                                   unsigned sampleRate, juce::MemoryBlock& blob, juce::PropertySet& settings) = 0;

    /** The longest response, in samples, that the structure can take. */
    virtual unsigned getMaxTaps (const juce::StringPairArray& parameters, unsigned sampleRate) = 0;

    /** The latency that the structure adds, in milliseconds. */
    virtual float getLatencyMs (const juce::StringPairArray& parameters, unsigned sampleRate) = 0;
};

/** Follows a conversion: a fraction from 0 to 1 and a text; what it returns is not used. May be empty. */
using ProgressFunction = std::function<bool (float fraction, const juce::String& message)>;

/** Makes the handler of a structure.

    @param name  exactly "FIIR", "FIR", "VLFIR" or "VLFIR2"
    @returns     null for any other name
*/
std::unique_ptr<ITopology> createTopology (const juce::String& name, ProgressFunction progress);

/** Reads a parameter string: "key=value" items joined by ";". An item that is not exactly one key and one
    value is skipped; keys are found whatever their case. */
juce::StringPairArray parseParameters (const juce::String& text);

}
