// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/measure/CaptureRecorder.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace veltra::host {

namespace {

constexpr std::size_t kMostArrivals = 1u << 17;
constexpr std::size_t kPunctualOf = 10; // of so many packets in a row at least one is taken to come without delay

}

std::optional<double> missingSeconds (std::span<const Arrival> arrivals, double sampleRate)
{
    if (arrivals.size() < 2 * kPunctualOf)
        return {};

    // A packet's lateness grows for good when packets before it are lost, and for a while when it is delayed.
    const auto leastLateness = [sampleRate] (std::span<const Arrival> some) {
        double least = std::numeric_limits<double>::infinity();

        for (const auto& arrival : some)
            least = std::min (least, arrival.seconds - static_cast<double> (arrival.samples) / sampleRate);

        return least;
    };

    return std::max (0.0, leastLateness (arrivals.last (kPunctualOf)) - leastLateness (arrivals.first (kPunctualOf)));
}

CaptureRecorder::CaptureRecorder (std::size_t capacityToUse)
    : capacity (capacityToUse),
      storage (std::make_unique_for_overwrite<float[]> (capacityToUse)),
      arrivalTimes (std::make_unique_for_overwrite<Arrival[]> (kMostArrivals))
{
}

void CaptureRecorder::OnCaptureData (const float* data, std::int32_t count)
{
    if (count <= 0)
        return;

    const auto before = written.load (std::memory_order_relaxed);
    const auto taken = std::min (static_cast<std::size_t> (count), capacity - before);
    float level = 0.0f;

    for (std::size_t i = 0; i < taken; ++i)
    {
        storage[before + i] = data[i];
        level = std::max (level, std::abs (data[i]));
    }

    notePeak (level);
    written.store (before + taken, std::memory_order_release);
    noteArrival (before + taken);
    lost += static_cast<std::size_t> (count) - taken;
}

void CaptureRecorder::notePeak (float level) noexcept
{
    auto known = peak.load();

    while (level > known && ! peak.compare_exchange_weak (known, level))
    {
    }
}

void CaptureRecorder::noteArrival (std::size_t samplesSoFar) noexcept
{
    const auto index = packets.load (std::memory_order_relaxed);

    if (index == kMostArrivals)
        return;

    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    arrivalTimes[index] = { std::chrono::duration<double> (now).count(), samplesSoFar };
    packets.store (index + 1, std::memory_order_release);
}

}
