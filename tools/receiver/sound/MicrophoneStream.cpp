// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/sound/MicrophoneStream.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace veltra::receiver {

MicrophoneStream::MicrophoneStream (const Format& wanted, Taker takes)
    : format (wanted),
      taker (std::move (takes)),
      thread ([this] { run(); })
{
}

MicrophoneStream::~MicrophoneStream()
{
    {
        const std::scoped_lock guard (lock);
        isEnding = true;
    }
    ended.notify_all();
    thread.join();
}

void MicrophoneStream::play (std::unique_ptr<Playback> playback)
{
    const std::scoped_lock guard (lock);
    hasNews = true;
    next = std::move (playback);
    length = next != nullptr ? next->length() : 0;
    played = 0;
}

void MicrophoneStream::stop() { play (nullptr); }

MicrophoneStream::Status MicrophoneStream::status() const
{
    const std::scoped_lock guard (lock);

    if (played >= length)
        return {};

    return { true, static_cast<float> (static_cast<double> (played) / static_cast<double> (length)) };
}

void MicrophoneStream::run()
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const auto samplesPerSecond = static_cast<double> (format.sampleRate) * format.speed;

    tools::NoiseSource noise (format.noise_dBFS);
    std::vector<float> packet (format.packetSamples);
    std::unique_ptr<Playback> playback;

    for (std::uint64_t position = 0;;)
    {
        position += packet.size();
        const std::chrono::duration<double> due (static_cast<double> (position) / samplesPerSecond);
        {
            std::unique_lock guard (lock);

            if (ended.wait_until (guard, start + std::chrono::duration_cast<Clock::duration> (due),
                                  [this] { return isEnding; }))
                return;

            if (std::exchange (hasNews, false))
                playback = std::move (next);
        }

        std::generate (packet.begin(), packet.end(), [&] { return noise.next(); });

        if (playback != nullptr)
            playback->mix (packet);

        if (! taker (packet))
            return;

        const std::scoped_lock guard (lock);

        if (playback != nullptr && ! hasNews)
            played = std::min<std::uint64_t> (played + packet.size(), length);

        if (playback != nullptr && playback->isOver())
            playback = nullptr;
    }
}

}
