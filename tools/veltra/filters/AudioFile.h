// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "tools/output/OutputFile.h"

namespace veltra::host {

/** The samples of a file of one channel. */
struct MonoAudio
{
    unsigned sampleRate = 0; ///< Hz
    std::vector<float> samples;
};

/** Bare samples of one channel, little-endian: what a file without a header does not say itself. */
struct RawFormat
{
    int encoding = 0;        ///< libsndfile's number of it
    unsigned sampleRate = 0; ///< Hz
};

/** Reads a format: s16, s24, s32, f32 or f64, "@" and the sample rate, for example "f32@48000".
    @throws  Failure (kExitUsage) */
RawFormat parseRawFormat (std::string_view text);

/** Which samples of a file are meant. */
struct AudioSelection
{
    std::optional<unsigned> channel {}; ///< counted from 0; without it the file must have one only
    std::optional<RawFormat> raw {};    ///< of a file without a header
};

/** Reads one channel of an audio file of any kind that libsndfile knows; integer formats come as -1 to 1.

    @throws  Failure (kExitInput) when it cannot be read, has not the channel, no samples, more than
             67108864 of them, or samples that are not finite numbers
*/
MonoAudio readMonoAudio (const std::filesystem::path& file, const AudioSelection& selection = {});

/** How many channels an audio file with a header has.
    @throws  Failure (kExitInput) */
unsigned audioChannels (const std::filesystem::path& file);

/** Writes a mono WAV file of 32-bit floats, which is then ready to be completed. The same samples give the same bytes.
    @throws  Failure (kExitOutput)
*/
void writeFloatWav (const OutputFile& output, unsigned sampleRate, std::span<const float> samples);

}
