// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <Eigen/Core>
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

        @param result      receives ok, or a failure with a readable reason
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

/** What a device loaded: the bytes of one sample rate and what it knows of them. */
struct DeviceData
{
    juce::String topologyName;           ///< one of topologies()
    juce::StringPairArray parameters;    ///< the topology's, as the conversion got them
    std::uint32_t sampleRate = 0;        ///< Hz
    std::uint32_t channelCount = 0;      ///< channels that the bytes should hold
    std::span<const std::uint8_t> bytes; ///< borrowed; may come from anywhere
};

enum class VLFIRGeneration;

/** All that differs between filter structures for whoever handles them by name. A new structure is one row of the
    table in Topology.cpp, and the handler that the row names. */
struct TopologyEntry
{
    const char* name; ///< as devices announce it

    std::unique_ptr<ITopology> (*makeHandler) (ProgressFunction progress);

    /** The impulse response that a channel of the device plays with its bytes. deviceResponse() is the checked way to
        call it. */
    std::optional<Eigen::VectorXf> (*readResponse) (const DeviceData& data, std::uint32_t channel,
                                                    std::string& problem);

    bool hasSections; ///< plays second-order sections beside its taps, and copies both from a set that has them

    unsigned delay; ///< samples by which the structure delays everything that it plays

    /** Of a dual-rate structure, which has a short filter at a sixteenth of the rate (VLFIRHandler.h). */
    std::optional<VLFIRGeneration> dualRate;
};

/** The structures, in the order in which names are compared. */
std::span<const TopologyEntry> topologies() noexcept;

/** @returns  null unless the name is exactly one of the table's */
const TopologyEntry* findTopology (const juce::String& name) noexcept;

/** Makes the handler of a structure.
    @returns  null when there is no structure of exactly this name, or no memory
*/
std::unique_ptr<ITopology> createTopology (const juce::String& name, ProgressFunction progress);

/** What the device makes of an impulse on a channel: the filter as it is played, for comparison with the one that was
    asked for. It comes TopologyEntry::delay samples late.

    @param channel  place of the channel in the data, below channelCount
    @param problem  receives a readable reason when the data is not that of its topology
    @returns        the whole response; of the sections of a FIIR device one second
    @throws         std::bad_alloc
    Any thread.
*/
std::optional<Eigen::VectorXf> deviceResponse (const DeviceData& data, std::uint32_t channel, std::string& problem);

/** Reads a parameter string: "key=value" items joined by ";". An item that is not exactly one key and one
    value is skipped; keys are found whatever their case. */
juce::StringPairArray parseParameters (const juce::String& text);

}
