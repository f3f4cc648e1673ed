// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FilterSetsImpl.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <span>
#include <utility>

#include "dsp/Resampling.h"
#include "filters/FIIREngine.h"

namespace veltra::filters {

namespace {

constexpr double kResamplerAttenuationdB = 80.0;

std::string textOrEmpty (const char* text) { return text == nullptr ? std::string {} : std::string (text); }

/** Place of the first number that is not finite; the size of the list when there is none. */
std::size_t findNotFinite (std::span<const float> numbers)
{
    const auto found = std::find_if (numbers.begin(), numbers.end(), [] (float n) { return ! std::isfinite (n); });
    return static_cast<std::size_t> (found - numbers.begin());
}

bool hasResponse (std::uint32_t sampleRate, const topology::FIIRData& set)
{
    return sampleRate != 0 && sampleRate <= kMaxSampleRate && set.sections.size() <= kMaxSections;
}

}

FilterSetsImpl::FilterSetsImpl (std::string name) : projectName (std::move (name)) {}

//======================================================================================================================
bool FilterSetsImpl::GetFilter (std::uint32_t index, veltratune_io::Filter** filter)
{
    if (index >= filters.size())
        return false;

    if (filter != nullptr)
        *filter = filters[index].get();

    return true;
}

//======================================================================================================================
unsigned FilterSetsImpl::getParseMask()
{
    return parser::FIIR::kParseHeader | parser::FIIR::kParseChannels | parser::FIIR::kParseCoefficients;
}

bool FilterSetsImpl::onHeader (const char* newProjectName, const char* newTechnology, int, const char*, const char*,
                               const char*, const char*, const char*, const char*)
{
    projectName = textOrEmpty (newProjectName);
    technology = textOrEmpty (newTechnology);
    firCache.clear();
    return true;
}

bool FilterSetsImpl::onChannel (unsigned, const char* name, int number, float gaindB, float delayMs,
                                float maxFilterGaindB, int subwoofer, float xoverFreq)
{
    const std::pair<const char*, float> numbers[] {
        { "GaindB", gaindB }, { "Delayms", delayMs }, { "MaxFilterGaindB", maxFilterGaindB }, { "xoverFreq", xoverFreq }
    };

    for (const auto& [attribute, value] : numbers)
        if (! std::isfinite (value))
            return refuse (attribute);

    try
    {
        addFilter ({ textOrEmpty (name), static_cast<std::uint32_t> (number) - 1u, gaindB, delayMs, maxFilterGaindB,
                     subwoofer, xoverFreq });
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
}

bool FilterSetsImpl::onCoefficients (unsigned channelIndex, int sampleRate, bool minPhase, const float* taps,
                                     unsigned tapCount, const float* sections, unsigned sectionCount, const char* extra)
{
    if (minPhase)
        return true;

    if (channelIndex >= filters.size())
        return false;

    const std::span<const float> allTaps (taps, tapCount);
    const std::span<const float> allSections (sections, std::size_t { 4 } * sectionCount);

    if (const auto bad = findNotFinite (allTaps); bad != allTaps.size())
        return refuse ("taps", bad + 1);

    if (const auto bad = findNotFinite (allSections); bad != allSections.size())
        return refuse ("section", bad / 4 + 1);

    topology::FIIRData data { Eigen::Map<const Eigen::VectorXf> (taps, tapCount),
                              std::vector<dsp::FIIRSection> (sectionCount) };

    for (size_t i = 0; i < data.sections.size(); ++i)
        data.sections[i] = { sections[4 * i], sections[4 * i + 1], sections[4 * i + 2], sections[4 * i + 3] };

    const auto rate = static_cast<std::uint32_t> (sampleRate);
    filters[channelIndex]->setCoefficientSet ({ rate, false }, std::move (data));

    return extra == nullptr || filters[channelIndex]->readExtra (extra, rate) || refuse ("Delay in Extra");
}

bool FilterSetsImpl::refuse (const char* what, std::size_t place)
{
    refusedWhat = what;
    refusedPlace = place;
    return false;
}

std::string FilterSetsImpl::getRefusal() const
{
    if (refusedWhat == nullptr)
        return {};

    return (refusedPlace == 0 ? std::string() : "number " + std::to_string (refusedPlace) + " of ") + refusedWhat
           + " is not a finite 32-bit number";
}

//======================================================================================================================
FilterImpl& FilterSetsImpl::addFilter (ChannelAttributes attributes)
{
    return *filters.emplace_back (std::make_unique<FilterImpl> (std::move (attributes)));
}

const FilterImpl* FilterSetsImpl::getFilterImpl (std::uint32_t index) const
{
    return index < filters.size() ? filters[index].get() : nullptr;
}

std::string FilterSetsImpl::getChannelName (std::uint32_t index) const
{
    const auto* const filter = getFilterImpl (index);
    return filter == nullptr ? std::string {} : filter->getAttributes().name;
}

float FilterSetsImpl::getMaxFilterGaindB (std::uint32_t index) const
{
    const auto* const filter = getFilterImpl (index);
    return filter == nullptr ? 0.0f : filter->getMaxFilterGaindB();
}

bool FilterSetsImpl::forEachFilter (const std::function<bool (unsigned, const FilterImpl&)>& function) const
{
    for (unsigned i = 0; i < filters.size(); ++i)
        if (! function (i, *filters[i]))
            return false;

    return true;
}

Eigen::VectorXf CoefficientSet::makeResponse() const
{
    FIIREngine engine;
    engine.setTaps (data->taps);

    for (const auto& section : data->sections)
        engine.addSection (section);

    Eigen::VectorXf signal = Eigen::VectorXf::Unit (sampleRate, 0);
    engine.process (signal);
    return signal.allFinite() ? signal : Eigen::VectorXf();
}

void FilterSetsImpl::forEachCoefficientSet (const std::function<void (const CoefficientSet&)>& function,
                                            bool minPhase) const
{
    for (const auto& filter : filters)
        for (const auto& [key, data] : filter->getCoefficientSets())
            if (key.minPhase == minPhase && hasResponse (key.sampleRate, data))
                function ({ filter->GetChannel(), key.sampleRate, &data });
}

//======================================================================================================================
const Eigen::VectorXf& FilterSetsImpl::getFIR (std::uint32_t sampleRate, std::uint32_t index)
{
    static const Eigen::VectorXf none;

    if (index >= filters.size())
        return none;

    auto& [sourceRate, responses] = cacheFor (sampleRate);
    const auto channelNumber = filters[index]->GetChannel();

    if (const auto found = responses.find (channelNumber); found != responses.end())
        return found->second;

    return responses
        .emplace (channelNumber, sourceRate == sampleRate ? makeResponse (channelNumber, sampleRate)
                                                          : makeResponse (index, sourceRate, sampleRate))
        .first->second;
}

void FilterSetsImpl::keepResponsesFor (std::vector<std::uint32_t> ratesToCome) noexcept
{
    expectedRates.swap (ratesToCome);

    // Of a rate that was not asked for yet, this is the only one that the first request can need.
    const auto sourceOf = [this] (std::uint32_t rate) {
        const auto next = firCache.lower_bound (rate);
        return next == firCache.end() ? 0 : next->second.sourceRate;
    };

    for (auto& [rate, cache] : firCache)
        if (! willBeAskedFor (rate)
            && std::none_of (expectedRates.begin(), expectedRates.end(),
                             [&, source = rate] (auto lower) { return sourceOf (lower) == source; }))
            cache.responses.clear();
}

std::size_t FilterSetsImpl::getResponseCount() const noexcept
{
    std::size_t count = 0;

    for (const auto& [rate, cache] : firCache)
        count += static_cast<std::size_t> (std::count_if (cache.responses.begin(), cache.responses.end(),
                                                          [] (const auto& r) { return r.second.size() > 0; }));

    return count;
}

bool FilterSetsImpl::willBeAskedFor (std::uint32_t sampleRate) const noexcept
{
    return std::find (expectedRates.begin(), expectedRates.end(), sampleRate) != expectedRates.end();
}

FilterSetsImpl::RateCache& FilterSetsImpl::cacheFor (std::uint32_t sampleRate)
{
    if (firCache.empty())
        forEachCoefficientSet ([this] (const auto& set) { firCache[set.sampleRate].sourceRate = set.sampleRate; },
                               false);

    const auto next = firCache.lower_bound (sampleRate);

    if (next != firCache.end() && next->first == sampleRate)
        return next->second;

    const auto sourceRate = next == firCache.end() ? 0 : next->first;
    return firCache.emplace (sampleRate, RateCache { sourceRate, {} }).first->second;
}

Eigen::VectorXf FilterSetsImpl::makeResponse (std::uint32_t channelNumber, std::uint32_t sampleRate) const
{
    CoefficientSet last;
    forEachCoefficientSet (
        [&] (const auto& set) {
            if (set.channelNumber == channelNumber && set.sampleRate == sampleRate)
                last = set;
        },
        false);

    return last.data == nullptr ? Eigen::VectorXf() : last.makeResponse();
}

Eigen::VectorXf FilterSetsImpl::makeResponse (std::uint32_t index, std::uint32_t sourceRate, std::uint32_t sampleRate)
{
    if (sourceRate == 0 || cacheFor (sourceRate).sourceRate != sourceRate)
        return {};

    const auto channelNumber = filters[index]->GetChannel();
    const bool isKept = willBeAskedFor (sourceRate) || cacheFor (sourceRate).responses.contains (channelNumber);
    const auto made = isKept ? Eigen::VectorXf() : makeResponse (channelNumber, sourceRate);
    const auto& response = isKept ? getFIR (sourceRate, index) : made;

    if (response.size() == 0)
        return {};

    const double ratio = static_cast<double> (sampleRate) / sourceRate;
    const auto scale = static_cast<float> (static_cast<double> (sourceRate) / sampleRate);
    return scale * dsp::resampleFloat (response, ratio, kResamplerAttenuationdB);
}

}
