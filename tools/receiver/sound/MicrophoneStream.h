// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <thread>

#include "tools/receiver/sound/NoiseSource.h"
#include "tools/receiver/sound/Playback.h"

namespace veltra::receiver {

/** The microphone of a receiver in measurement mode: noise, and the stimulus when one is played, handed on in
    packets at the pace of the sample rate. It never runs ahead of the clock. Behind a slow taker it falls back and
    then catches up; no sample is lost. A thread of its own runs from construction to destruction.
*/
class MicrophoneStream
{
public:
    struct Format
    {
        std::uint32_t sampleRate = 48000;  ///< Hz, above 0
        double speed = 1.0;                ///< times real time, above 0
        std::uint32_t packetSamples = 512; ///< above 0
        double noise_dBFS = -90.0;         ///< RMS; minus infinity for silence
    };

    /** Takes a packet; false ends the stream. Called on the stream's thread; must return while the stream
        is being destroyed. */
    using Taker = std::function<bool (std::span<const float>)>;

    MicrophoneStream (const Format&, Taker);
    ~MicrophoneStream();

    /** Replaces what is being played, from the next packet on. Any thread. */
    void play (std::unique_ptr<Playback>);

    /** Silences what is being played. Any thread. */
    void stop();

    struct Status
    {
        bool isPlaying = false; ///< until the last sample of the stimulus has been played
        float progress = 0.0f;  ///< 0 to 1
    };
    Status status() const;

private:
    void run();

    const Format format;
    const Taker taker;

    mutable std::mutex lock; // everything below but the thread
    std::condition_variable ended;
    bool isEnding = false;
    bool hasNews = false; // `next` replaces what is being played
    std::unique_ptr<Playback> next;
    std::uint64_t length = 0, played = 0; // samples of the present playback

    std::thread thread;
};

}
