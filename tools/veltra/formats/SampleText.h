// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

namespace veltra::host {

/** An impulse response that was written as text. */
struct SampleText
{
    std::vector<float> samples;
    std::optional<double> sampleRate; ///< Hz, when the text says so
    std::optional<double> start_s;    ///< time of the first sample, when the text says so
};

/** Reads a text with one number a line. Lines that begin with "#" or "*" are comments; a line "NUMBER // NAME" belongs to the
    header of REW's "Export impulse response as text", of which sample interval, start time, length and peak value are used: the
    samples of a normalised response are multiplied by its peak value.

    @throws  Failure (kExitInput) that names the line; also for a response to which REW had applied a window, for its
             minimum-phase version, and for a length other than the header's
*/
SampleText readSampleText (const std::filesystem::path& file);

}
