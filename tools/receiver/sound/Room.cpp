// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/sound/Room.h"

#include <cmath>
#include <memory>
#include <regex>
#include <stdexcept>

#include "dsp/Resampling.h"
#include "tools/platform/SoundFile.h"

namespace veltra::receiver {

namespace {

constexpr double kMaxDelay_ms = 1000.0;

/** A response is a few seconds long at most; a longer file is something else. */
constexpr sf_count_t kMaxSamples = 16 * 1024 * 1024;

std::pair<std::uint32_t, Eigen::VectorXf> readWav (const std::filesystem::path& path)
{
    SF_INFO info {};
    const std::unique_ptr<SNDFILE, int (*) (SNDFILE*)> file (platform::openSoundFile (path, SFM_READ, info),
                                                             &::sf_close);

    if (file == nullptr)
        throw std::runtime_error (path.string() + ": " + ::sf_strerror (nullptr));

    if (info.channels != 1 || info.frames <= 0 || info.frames > kMaxSamples || info.samplerate <= 0)
        throw std::runtime_error (path.string() + ": no mono impulse response");

    Eigen::VectorXf samples (info.frames);

    if (::sf_readf_float (file.get(), samples.data(), info.frames) != info.frames)
        throw std::runtime_error (path.string() + ": cannot be read to its end");

    return { static_cast<std::uint32_t> (info.samplerate), std::move (samples) };
}

}

Room::Room (const Options& options) : delay_ms (options.delay_ms)
{
    if (! (delay_ms >= 0.0 && delay_ms <= kMaxDelay_ms))
        throw std::runtime_error ("The room's delay is not between 0 and 1000 ms");

    if (options.folder.empty())
        return;

    static const std::regex name ("measured_(.+)_([0-9]+)\\.wav");
    std::error_code error;

    for (const auto& entry : std::filesystem::directory_iterator (options.folder, error))
    {
        std::smatch parts;
        const auto file = entry.path().filename().string();

        if (std::regex_match (file, parts, name))
        {
            auto [sampleRate, samples] = readWav (entry.path());
            measured[parts[1]][sampleRate] = std::move (samples);
        }
    }

    if (error)
        throw std::runtime_error (options.folder.string() + ": " + error.message());

    if (measured.empty())
        throw std::runtime_error (options.folder.string() + ": no files measured_CHANNEL_RATE.wav");
}

const Eigen::VectorXf& Room::response (const std::string& channelName, std::uint32_t sampleRate)
{
    const auto [place, isNew] = responses.try_emplace ({ channelName, sampleRate });

    if (isNew)
        place->second = makeResponse (channelName, sampleRate);

    return place->second;
}

Eigen::VectorXf Room::makeResponse (const std::string& channelName, std::uint32_t sampleRate) const
{
    const auto found = measured.find (channelName);

    if (found == measured.end())
    {
        const auto delay = static_cast<Eigen::Index> (std::lround (delay_ms * sampleRate / 1000.0));
        return Eigen::VectorXf::Unit (delay + 1, delay);
    }

    // A higher rate has all that the wanted one needs; a lower one is the last resort.
    const auto& rates = found->second;
    auto source = rates.lower_bound (sampleRate);

    if (source == rates.end())
        --source;

    if (source->first == sampleRate)
        return source->second;

    const auto ratio = static_cast<double> (sampleRate) / source->first;
    return dsp::resampleFloat (source->second, ratio, 80.0) / static_cast<float> (ratio);
}

}
