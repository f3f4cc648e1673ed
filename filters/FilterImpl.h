// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>

#include "topology/FilterSource.h"
#include "veltratune_io/Filter.h"

namespace veltra::filters {

/** What a filter description, or a device, says of a channel. */
struct ChannelAttributes
{
    std::string name;
    std::uint32_t channelNumber = 0; ///< from 0; 0xFFFFFFFF when the description gave none
    float gaindB = 0.0f;
    float delayMs = 0.0f;
    float maxFilterGaindB = 0.0f; ///< largest gain of the filter at any frequency
    std::int32_t subwoofer = -1;  ///< -1: not given
    float xoverFreq = 0.0f;       ///< crossover frequency in Hz
};

/** Order of a filter's coefficient sets: by sample rate, the minimum-phase version of a rate last. */
struct CoefficientSetKey
{
    std::uint32_t sampleRate = 0;
    bool minPhase = false;

    auto operator<=> (const CoefficientSetKey&) const = default;
};

using CoefficientSets = std::map<CoefficientSetKey, topology::FIIRData>;

/** The filter of one channel: attributes, and coefficients for any number of sample rates. */
class FilterImpl final : public veltratune_io::Filter
{
public:
    explicit FilterImpl (ChannelAttributes channelAttributes);

    const char* GetName() const override { return attributes.name.c_str(); }
    const char* GetDescription() const override { return ""; }
    std::uint32_t GetChannel() const override { return attributes.channelNumber; }
    veltratune_io::EResult UnsupportedQuery1 (std::uint64_t, std::uint64_t) override { return notSupported; }
    veltratune_io::EResult UnsupportedQuery2 (std::uint64_t) override { return notSupported; }
    float GetGaindB() const override { return attributes.gaindB; }
    veltratune_io::EResult UnsupportedQuery3 (std::uint64_t) override { return notSupported; }
    veltratune_io::EResult UnsupportedQuery4 (std::uint64_t) override { return notSupported; }
    float GetDelayMs() const override { return attributes.delayMs; }
    void Reserved() override {}

    const ChannelAttributes& getAttributes() const noexcept { return attributes; }
    float getMaxFilterGaindB() const noexcept { return attributes.maxFilterGaindB; }

    /** Delay in addition to GetDelayMs, from the coefficient sets; 0 when none of them gives one. */
    float getExtraDelayMs() const noexcept { return extraDelayMs; }

    const CoefficientSets& getCoefficientSets() const noexcept { return coefficientSets; }

    /** The set at exactly this key; null when there is none. */
    const topology::FIIRData* findCoefficientSet (CoefficientSetKey key) const;

    /** Adds a set, or replaces the one at this key. */
    void setCoefficientSet (CoefficientSetKey key, topology::FIIRData data);

    /** Reads the parameter string of a coefficient set: its key "Delay" is the extra delay in samples at sampleRate.
        The first set whose delay is not 0 decides.
        @returns  false when the delay is not a finite 32-bit number */
    bool readExtra (const char* extra, std::uint32_t sampleRate);

private:
    static constexpr auto notSupported = veltratune_io::kResultNotSupported;

    CoefficientSets coefficientSets;
    ChannelAttributes attributes;
    float extraDelayMs = 0.0f;
};

}
