// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/AudioFile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "tools/ExitStatus.h"
#include "tools/platform/SoundFile.h"
#include "tools/veltra/session/StrictNumber.h"

namespace veltra::host {

namespace {

constexpr sf_count_t kLongestFile = 1 << 26; // eleven minutes at 96000 Hz

constexpr unsigned kHighestRate = 1536000;

using OpenFile = std::unique_ptr<SNDFILE, decltype (&sf_close)>;

struct Source
{
    SF_INFO info = {};
    OpenFile file { nullptr, sf_close };
    int sampleBytes = 0; ///< of bare samples
};

Source open (const std::filesystem::path& file, const std::optional<RawFormat>& raw)
{
    Source source;

    if (raw)
    {
        source.info.format = SF_FORMAT_RAW | raw->encoding | SF_ENDIAN_LITTLE;
        source.info.samplerate = static_cast<int> (raw->sampleRate);
        source.info.channels = 1;
        source.sampleBytes = raw->encoding == SF_FORMAT_PCM_16   ? 2
                             : raw->encoding == SF_FORMAT_PCM_24 ? 3
                             : raw->encoding == SF_FORMAT_DOUBLE ? 8
                                                                 : 4;
    }

    source.file.reset (platform::openSoundFile (file, SFM_READ, source.info));

    if (source.file == nullptr)
        throw Failure (kExitInput, file.string() + " cannot be read: " + sf_strerror (nullptr) + ".");

    return source;
}

}

RawFormat parseRawFormat (std::string_view text)
{
    constexpr std::array<std::pair<std::string_view, int>, 5> encodings { { { "s16", SF_FORMAT_PCM_16 },
                                                                            { "s24", SF_FORMAT_PCM_24 },
                                                                            { "s32", SF_FORMAT_PCM_32 },
                                                                            { "f32", SF_FORMAT_FLOAT },
                                                                            { "f64", SF_FORMAT_DOUBLE } } };
    const auto at = text.find ('@');
    const auto found =
        std::ranges::find (encodings, text.substr (0, at), [] (const auto& entry) { return entry.first; });
    const auto rate = at == text.npos ? std::nullopt : strictNumber<unsigned> (text.substr (at + 1));

    if (found == encodings.end() || ! rate || *rate < 1 || *rate > kHighestRate)
        throw Failure (kExitUsage,
                       "'" + std::string (text)
                           + "' is not a format of bare samples; expected s16, s24, s32, f32 or f64, '@' and "
                             "the sample rate, as in f32@48000.");

    return { found->second, *rate };
}

MonoAudio readMonoAudio (const std::filesystem::path& file, const AudioSelection& selection)
{
    const auto source = open (file, selection.raw);
    const auto& info = source.info;
    const auto refuse = [&] (const std::string& why) { return Failure (kExitInput, file.string() + " " + why + "."); };
    const auto channel = static_cast<int> (selection.channel.value_or (0));

    if (! selection.channel && info.channels != 1)
        throw refuse ("has " + std::to_string (info.channels)
                      + " channels and should have one; NAME=FILE:N takes one of them");

    if (channel >= info.channels)
        throw refuse ("has no channel " + std::to_string (channel) + ": its channels are 0 to "
                      + std::to_string (info.channels - 1));

    if (info.frames < 1 || info.frames > kLongestFile / info.channels)
        throw refuse (info.frames < 1 ? "holds no samples" : "is too long");

    if (selection.raw && std::filesystem::file_size (file) % static_cast<std::uintmax_t> (source.sampleBytes) != 0)
        throw refuse ("is not a whole number of samples of " + std::to_string (source.sampleBytes) + " bytes");

    std::vector<float> frames (static_cast<std::size_t> (info.frames * info.channels));

    if (sf_readf_float (source.file.get(), frames.data(), info.frames) != info.frames)
        throw refuse ("ends before its last sample");

    MonoAudio audio;
    audio.sampleRate = static_cast<unsigned> (info.samplerate);

    for (auto i = static_cast<std::size_t> (channel); i < frames.size(); i += static_cast<std::size_t> (info.channels))
        audio.samples.push_back (frames[i]);

    if (! std::ranges::all_of (audio.samples, [] (float sample) { return std::isfinite (sample); }))
        throw refuse ("holds samples that are not finite numbers");

    return audio;
}

unsigned audioChannels (const std::filesystem::path& file)
{
    return static_cast<unsigned> (open (file, std::nullopt).info.channels);
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
