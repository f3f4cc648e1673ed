#pragma once

#include <string>
#include <vector>

#include "dsp/FIIRSection.h"

namespace veltra::test {

/** The parts of a filter description, and its text. */
struct CoefficientSet
{
    int rate = 48000;
    std::vector<float> taps;
    std::vector<dsp::FIIRSection> sections; ///< none makes a FIR set
    std::string extra;
};

struct FilterChannel
{
    std::string name;
    int number = 1; ///< from 1
    float gain_dB = 0.0f;
    float delay_ms = 0.0f;
    float maxGain_dB = 0.0f;
    std::vector<CoefficientSet> sets;
};

std::string filterText (const std::string& project, const std::string& technology,
                        const std::vector<FilterChannel>& channels);

}
