// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/AudioFile.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "tools/ExitStatus.h"
#include "tools/platform/SoundFile.h"

namespace veltra::host {

namespace {

constexpr sf_count_t kLongestFile = 1 << 26; // eleven minutes at 96000 Hz

using OpenFile = std::unique_ptr<SNDFILE, decltype (&sf_close)>;

}

MonoAudio readMonoAudio (const std::filesystem::path& file)
{
    const auto refuse = [&] (const std::string& why) { return Failure (kExitInput, file.string() + " " + why + "."); };

    SF_INFO info = {};
    const OpenFile source (platform::openSoundFile (file, SFM_READ, info), sf_close);

    if (source == nullptr)
        throw refuse (std::string ("cannot be read: ") + sf_strerror (nullptr));

    if (info.channels != 1)
        throw refuse ("has " + std::to_string (info.channels) + " channels and should have one");

    if (info.frames < 1 || info.frames > kLongestFile)
        throw refuse (info.frames < 1 ? "holds no samples" : "is too long");

    MonoAudio audio;
    audio.sampleRate = static_cast<unsigned> (info.samplerate);
    audio.samples.resize (static_cast<std::size_t> (info.frames));

    if (sf_readf_float (source.get(), audio.samples.data(), info.frames) != info.frames)
        throw refuse ("ends before its last sample");

    if (! std::ranges::all_of (audio.samples, [] (float sample) { return std::isfinite (sample); }))
        throw refuse ("holds samples that are not finite numbers");

    return audio;
}

void writeFloatWav (const OutputFile& output, unsigned sampleRate, std::span<const float> samples)
{
    const auto refuse = [&] (const char* why) {
        return Failure (kExitOutput, output.shownName().string() + " cannot be written: " + why + ".");
    };

    SF_INFO info = {};
    info.samplerate = static_cast<int> (sampleRate);
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    OpenFile target (platform::openSoundFile (output.temporaryPath(), SFM_WRITE, info), sf_close);

    if (target == nullptr)
        throw refuse (sf_strerror (nullptr));

    sf_command (target.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE); // it holds the time of day

    const auto count = static_cast<sf_count_t> (samples.size());

    if (sf_writef_float (target.get(), samples.data(), count) != count)
        throw refuse (sf_strerror (target.get()));

    if (sf_close (target.release()) != 0)
        throw refuse ("the disk may be full");
}

}
