// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "tools/veltra/measure/CaptureRecorder.h"
#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

/** What to measure. */
struct MeasurementPlan
{
    veltratune_io::EStimulus stimulus = veltratune_io::kStimulusSineLogSweep;
    std::vector<std::uint32_t> channels; ///< numbers of the channels that play
    std::uint32_t sampleRate = 48000;    ///< Hz
    double tail_s = 1.0;                 ///< audio to keep after the stimulus has ended
    double longest_s = 60.0;             ///< audio after which a stimulus that does not end is given up
};

/** Samples that a recorder needs room for to carry out a plan. */
std::size_t captureCapacity (const MeasurementPlan& plan);

/** Plays a stimulus and captures what the receiver's microphone hears, until the stimulus has ended and the tail
    is in, the plan's longest time is over, or goOn says so. Whatever happens, the stimulus is stopped and the
    receiver has been asked to go back to listening when the function returns or throws.

    @param recorder  receives the audio; not in use any more when the function has returned or thrown
    @param goOn      called about every 50 ms; false ends the measurement
    @returns         whether the stimulus came to its end
    @throws          Failure (kExitReceiver) with the receiver's reason
*/
bool measure (DeviceSession& session, const MeasurementPlan& plan, CaptureRecorder& recorder,
              const std::function<bool()>& goOn);

}
