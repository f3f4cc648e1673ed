// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>

#include <Eigen/Core>

#include "dsp/FftConvolve.h"

namespace veltra::receiver {

/** A stimulus played through the room, rendered block by block at the microphone. One thread at a time. */
class Playback
{
public:
    /** @param stimulus  what is played
        @param response  from the stimulus to the microphone; empty for silence
        @param latency   samples of silence before the stimulus begins */
    Playback (Eigen::VectorXf stimulus, Eigen::VectorXf response, std::uint64_t latency);

    /** Adds the next samples to `out`. */
    void mix (std::span<float> out);

    /** Samples until the last one of the stimulus has been played; the room decays after that. */
    std::uint64_t length() const { return latency + static_cast<std::uint64_t> (stimulus.size()); }

    /** Everything has been played, and the room has decayed. */
    bool isOver() const { return position >= length() + static_cast<std::uint64_t> (responseSize - 1); }

private:
    void renderBlock();

    const Eigen::VectorXf stimulus;
    const Eigen::Index responseSize;
    const std::uint64_t latency;
    dsp::FftConvolver convolver;

    std::uint64_t position = 0;   // samples that mix() has given
    Eigen::Index rendered = 0;    // samples of the stimulus that have been convolved
    Eigen::VectorXf ready, decay; // the convolved samples to give out, and what follows of them in the next block
    Eigen::Index taken = 0;       // of ready
};

}
