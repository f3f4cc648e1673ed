// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "veltratune_io/Callbacks.h"

namespace veltra::host {

/** When a packet of audio came. */
struct Arrival
{
    double seconds = 0.0;      ///< on any clock
    std::uint64_t samples = 0; ///< received by then, this packet included
};

/** How much audio a receiver did not deliver, judged by the clock: the seconds by which the packets fell behind
    the time that passed, and stayed behind. Packets carry no number that a host could see, so this is all that
    can be known of lost ones. A receiver that sends faster than real time is never behind.

    @returns  nothing when there are too few packets to distinguish delay from loss
*/
std::optional<double> missingSeconds (std::span<const Arrival> arrivals, double sampleRate);

/** Keeps the audio of a measurement.

    The module calls the capture operations on a thread of its own; they copy, and neither allocate nor wait.
    One other thread may look at the same time.
*/
class CaptureRecorder final : public veltratune_io::CaptureCallback
{
public:
    /** Makes all the room that will ever be used; the system provides it as it fills.
        @param capacity  in samples
        @throws          std::bad_alloc
    */
    explicit CaptureRecorder (std::size_t capacity);

    /** What has been captured so far. The samples stay where they are; a later call sees more of them. */
    std::span<const float> samples() const noexcept
    {
        return { storage.get(), written.load (std::memory_order_acquire) };
    }

    /** When the packets came; the first 131072 of them. */
    std::span<const Arrival> arrivals() const noexcept
    {
        return { arrivalTimes.get(), packets.load (std::memory_order_acquire) };
    }

    /** Samples for which there was no room. */
    std::uint64_t overflow() const noexcept { return lost; }

    /** Largest magnitude since the previous call. */
    float takePeak() noexcept { return peak.exchange (0.0f); }

    void Reserved1() override {}
    void Reserved2() override {}
    void OnCaptureStart (std::int32_t) override {}
    void OnCaptureData (const float* data, std::int32_t count) override;

private:
    void notePeak (float level) noexcept;
    void noteArrival (std::size_t samplesSoFar) noexcept;

    const std::size_t capacity;
    const std::unique_ptr<float[]> storage;
    const std::unique_ptr<Arrival[]> arrivalTimes;

    // Written by the module's thread alone, but for the peak, which the other one takes back to 0.
    std::atomic<std::size_t> written { 0 };
    std::atomic<std::size_t> packets { 0 };
    std::atomic<std::uint64_t> lost { 0 };
    std::atomic<float> peak { 0.0f };
};

}
