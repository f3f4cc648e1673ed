// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "dsp/FIIRSection.h"

namespace veltra::host {

/** The filter of a channel at one sample rate: FIR, or FIIR when there are sections. */
struct DescribedResponse
{
    unsigned sampleRate = 0; ///< Hz
    std::vector<float> taps; ///< at least one
    std::vector<dsp::FIIRSection> sections {};
};

/** The filter of one channel. */
struct DescribedChannel
{
    std::string name;
    unsigned number = 0;           ///< from 1
    float maxFilterGain_dB = 0.0f; ///< largest gain at any frequency and rate
    bool subwoofer = false;
    std::vector<DescribedResponse> responses;
    float gain_dB = 0.0f;
    float delay_ms = 0.0f;
};

/** What a room-correction application hands to the module: the filters of a project. */
struct FilterDescription
{
    std::string project;
    std::string technology;
    std::vector<DescribedChannel> channels;
};

/** Whether a channel of this name is a subwoofer's: SW, SUB or LFE, also with a number behind. */
bool isSubwooferName (const std::string& channel);

/** Writes the description as XML text. Every number reads back as the float that it was, also for a reader
    that goes by way of double, and takes no more digits than that needs.
    @throws  Failure (kExitUsage) for a control character in a text; faults of the stream show in its state
*/
void writeFilterDescription (std::ostream& stream, const FilterDescription& description);

/** The same into a file, which appears complete or not at all; one that exists is replaced.
    @throws  Failure (kExitOutput, kExitUsage)
*/
void writeFilterDescription (const std::filesystem::path& file, const FilterDescription& description);

}
