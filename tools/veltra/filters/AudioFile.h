// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <span>
#include <vector>

#include "tools/output/OutputFile.h"

namespace veltra::host {

/** The samples of a file of one channel. */
struct MonoAudio
{
    unsigned sampleRate = 0; ///< Hz
    std::vector<float> samples;
};

/** Reads a mono audio file of any kind that libsndfile knows; integer formats come as -1 to 1.

    @throws  Failure (kExitInput) when it cannot be read, has more than one channel, no samples, more than
             67108864 of them, or samples that are not finite numbers
*/
MonoAudio readMonoAudio (const std::filesystem::path& file);

/** Writes a mono WAV file of 32-bit floats, which is then ready to be completed. The same samples give the same bytes.
    @throws  Failure (kExitOutput)
*/
void writeFloatWav (const OutputFile& output, unsigned sampleRate, std::span<const float> samples);

}
