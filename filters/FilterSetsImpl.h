// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "filters/FilterDescriptionParser.h"
#include "filters/FilterImpl.h"
#include "veltratune_io/Filter.h"

namespace veltra::filters {

/** Highest sample rate at which a coefficient set has an impulse response. */
inline constexpr std::uint32_t kMaxSampleRate = 1536000;

/** Most sections of a set that has an impulse response: devices have some dozens. */
inline constexpr unsigned kMaxSections = 1024;

/** A coefficient set on the walk through a filter set. */
struct CoefficientSet
{
    std::uint32_t channelNumber = 0;
    std::uint32_t sampleRate = 0;             ///< in Hz
    const topology::FIIRData* data = nullptr; ///< borrowed from the filter

    /** Its impulse response, one second long; empty when it does not stay finite.
        @throws  std::bad_alloc */
    Eigen::VectorXf makeResponse() const;
};

/** The filters of one project, one a channel.

    A set is empty when it is made, and is filled once: by the parser, whose callback it is, or channel by channel
    with addFilter for what a device says it holds already. From then on only its cache of impulse responses grows.

    No locks: one thread at a time, also for getFIR, which fills the cache.
*/
class FilterSetsImpl final : public veltratune_io::FilterSet,
                             public parser::FIIR::IFIIRCallback
{
public:
    /** @param name  of the project, until a header replaces it */
    explicit FilterSetsImpl (std::string name = {});

    //==================================================================================================================
    // FilterSet

    const char* GetName() const override { return projectName.c_str(); }
    const char* GetTechnology() const override { return technology.c_str(); }
    bool GetFilter (std::uint32_t index, veltratune_io::Filter** filter) override;

    //==================================================================================================================
    // IFIIRCallback

    unsigned getParseMask() override;

    /** Takes the project's name and the technology, empty where they are null; the rest is dropped. */
    bool onHeader (const char* newProjectName, const char* newTechnology, int channelCount, const char* creationDate,
                   const char* creator, const char* creatorVersion, const char* fileName,
                   const char* numberRepresentation, const char* tsexp) override;

    /** @returns  false for a number that is not finite, which would reach the amplifier */
    bool onChannel (unsigned index, const char* name, int number, float gaindB, float delayMs, float maxFilterGaindB,
                    int subwoofer, float xoverFreq) override;

    /** Keeps the set, which replaces an earlier one at this rate. Minimum-phase sets are accepted and dropped.
        @returns  false for a coefficient or a delay that is not finite: it would reach the loudspeakers as noise at
                  full scale
    */
    bool onCoefficients (unsigned channelIndex, int sampleRate, bool minPhase, const float* taps, unsigned tapCount,
                         const float* sections, unsigned sectionCount, const char* extra) override;

    std::string getRefusal() const override;

    //==================================================================================================================

    /** Appends a filter without coefficients.
        @returns  the filter, which belongs to the set
        @throws   std::bad_alloc
    */
    FilterImpl& addFilter (ChannelAttributes attributes);

    std::uint32_t getFilterCount() const noexcept { return static_cast<std::uint32_t> (filters.size()); }

    /** The filter at a place of the set; null for a place beyond the last. */
    const FilterImpl* getFilterImpl (std::uint32_t index) const;

    /** Name of the filter's channel; empty for a place beyond the last. */
    std::string getChannelName (std::uint32_t index) const;

    /** Largest gain in dB of a filter at any frequency; 0 for a place beyond the last. */
    float getMaxFilterGaindB (std::uint32_t index) const;

    /** Calls the function for each filter in order, until it returns false.
        @returns  whether it went through all of them
    */
    bool forEachFilter (const std::function<bool (unsigned index, const FilterImpl& filter)>& function) const;

    /** Calls the function for each coefficient set with an impulse response: filter by filter, and within a filter by
        ascending rate. Left out are sets whose rate is 0 or above kMaxSampleRate, and those with more than
        kMaxSections sections.

        @param minPhase  whether to walk the minimum-phase sets or the others
    */
    void forEachCoefficientSet (const std::function<void (const CoefficientSet&)>& function, bool minPhase) const;

    /** The impulse response of a filter at a sample rate, scaled so that its spectrum does not depend on the rate.

        It comes from the filter's coefficient set at this rate. A rate that no filter has a set for is made from the
        next higher rate: the smallest one above it that a filter has a set for or that was asked for before. Such a
        rate is tied to the one it is made from by the first request. When that rate has no sets either, or none is
        higher, the response is empty; so is that of a filter without a set at a rate that others have one for.

        Filters with the same channel number share the response of the last of them that has a set.

        @param index  place of the filter in the set
        @returns      empty when there is no response; valid as long as the set exists, or until keepResponsesFor drops it
        @throws       std::bad_alloc, which is not remembered: another call may find the memory
    */
    const Eigen::VectorXf& getFIR (std::uint32_t sampleRate, std::uint32_t index);

    /** Drops the responses that are needed neither at the rates to come nor to make theirs: at 48000 Hz a second takes
        188 KiB a channel. Of a rate to come that others are made from, each response is then made only once. Which rates
        were asked for stays known, so that a request means the same as without this call.

        @param ratesToCome  those that will be asked for; empty when there are none
        @throws             nothing
    */
    void keepResponsesFor (std::vector<std::uint32_t> ratesToCome) noexcept;

    /** How many responses are in memory. */
    std::size_t getResponseCount() const noexcept;

private:
    /** The responses at one rate, each made when it is first asked for. */
    struct RateCache
    {
        std::uint32_t sourceRate = 0;                       ///< rate of the sets they are made from; 0 for none
        std::map<std::uint32_t, Eigen::VectorXf> responses; ///< by channel number
    };

    /** Notes what was refused, and its place in a list, from 1.
        @returns  false */
    bool refuse (const char* what, std::size_t place = 0);

    RateCache& cacheFor (std::uint32_t sampleRate);
    bool willBeAskedFor (std::uint32_t sampleRate) const noexcept;

    /** From the set at this very rate. */
    Eigen::VectorXf makeResponse (std::uint32_t channelNumber, std::uint32_t sampleRate) const;

    /** From the response at a higher rate, which is kept when that rate will be asked for. */
    Eigen::VectorXf makeResponse (std::uint32_t index, std::uint32_t sourceRate, std::uint32_t sampleRate);

    std::vector<std::unique_ptr<FilterImpl>> filters;
    std::map<std::uint32_t, RateCache> firCache;
    std::vector<std::uint32_t> expectedRates; ///< see keepResponsesFor
    std::string projectName;
    std::string technology;
    const char* refusedWhat = nullptr;
    std::size_t refusedPlace = 0;
};

}
