// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A filter description, into filters and their impulse responses. The input is the text.
*/

#include "filters/FilterDescriptionParser.h"
#include "filters/FilterSetsImpl.h"
#include "fuzz/FuzzTarget.h"

namespace {

using namespace veltra;
using fuzz::require;

/** A response has a second's samples: higher rates take more time and no other way. */
constexpr std::uint32_t highestRate = 1000;
constexpr std::size_t mostSections = 16;

void checkResponse (filters::FilterSetsImpl& set, std::uint32_t rate, std::uint32_t index)
{
    const auto& response = set.getFIR (rate, index);
    require (response.size() == 0 || response.allFinite(), "a response is finite");
    require (&response == &set.getFIR (rate, index), "a response is made once");
}

bool isQuick (const filters::FilterSetsImpl& set)
{
    return set.forEachFilter ([] (unsigned, const filters::FilterImpl& filter) {
        for (const auto& [key, data] : filter.getCoefficientSets())
            if (key.sampleRate > highestRate || data.sections.size() > mostSections)
                return false;

        return true;
    });
}

}

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using namespace veltra::parser::FIIR;

    const std::string text (fuzz::asText (data, size));
    filters::FilterSetsImpl set;
    const auto result = parse (text.c_str(), &set, "Veltra");
    const auto check = parse (text.c_str(), nullptr, "Veltra");

    require (result == check || result == CallbackRefused, "a client that takes everything changes nothing");
    set.GetName();
    set.GetTechnology();

    if (! isQuick (set))
        return 0;

    for (std::uint32_t i = 0; i < set.getFilterCount(); ++i)
    {
        for (const auto& [key, coefficients] : set.getFilterImpl (i)->getCoefficientSets())
            checkResponse (set, key.sampleRate, i);

        for (const std::uint32_t rate : { 0u, 441u })
            checkResponse (set, rate, i);
    }

    return 0;
}
