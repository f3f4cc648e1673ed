// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/sound/Playback.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace veltra::receiver {

namespace {

/** Samples of the stimulus that are convolved at a time: with the response they fill a transform whose length is
    at least four times that of the response, so that little of the work goes into the overlap. */
Eigen::Index blockSize (Eigen::Index responseSize)
{
    const auto transform =
        std::bit_ceil (std::max<std::uint64_t> (4u * static_cast<std::uint64_t> (responseSize), 16384));
    return static_cast<Eigen::Index> (transform) - responseSize + 1;
}

Eigen::VectorXf orSilence (Eigen::VectorXf response)
{
    return response.size() > 0 ? std::move (response) : Eigen::VectorXf (Eigen::VectorXf::Zero (1));
}

}

Playback::Playback (Eigen::VectorXf played, Eigen::VectorXf response, std::uint64_t latencySamples)
    : stimulus (std::move (played)),
      responseSize (std::max<Eigen::Index> (response.size(), 1)),
      latency (latencySamples),
      convolver ({ orSilence (std::move (response)) })
{
}

void Playback::renderBlock()
{
    taken = 0;
    const auto count = std::min (blockSize (responseSize), stimulus.size() - rendered);

    if (count == 0)
    {
        ready = std::exchange (decay, {});
        return;
    }

    const Eigen::VectorXf block = stimulus.segment (rendered, count);
    convolver.setSignal (block);
    Eigen::VectorXf sound = convolver.convolve (0);
    sound.head (decay.size()) += decay;
    ready = sound.head (count);
    decay = sound.tail (responseSize - 1);
    rendered += count;
}

void Playback::mix (std::span<float> out)
{
    while (! out.empty() && ! isOver())
    {
        auto count = static_cast<Eigen::Index> (out.size());

        if (position < latency)
        {
            count = std::min (count, static_cast<Eigen::Index> (latency - position));
        }
        else
        {
            if (taken == ready.size())
                renderBlock();

            count = std::min (count, ready.size() - taken);
            Eigen::Map<Eigen::VectorXf> (out.data(), count) += ready.segment (taken, count);
            taken += count;
        }

        position += static_cast<std::uint64_t> (count);
        out = out.subspan (static_cast<std::size_t> (count));
    }
}

}
