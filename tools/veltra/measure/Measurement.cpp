// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/measure/Measurement.h"

#include <chrono>
#include <thread>

#include "tools/ExitStatus.h"

namespace veltra::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval { 50 };

/** How often in a row the receiver must say that nothing plays: no answer in time reads the same. */
constexpr int kSilentAnswers = 2;

/** Beyond the tail's own length: the time that a receiver may be behind with its audio. */
constexpr double kTailPatience_s = 2.0;

std::size_t samplesOf (double seconds, std::uint32_t rate) { return static_cast<std::size_t> (seconds * rate); }

/** Measurement mode, from construction to destruction. */
class MeasurementMode
{
public:
    MeasurementMode (DeviceSession& sessionToUse, const MeasurementPlan& plan, CaptureRecorder& recorder)
        : session (sessionToUse)
    {
        const auto channels = static_cast<std::uint32_t> (plan.channels.size());
        const auto result = session.device().EnterMeasurementMode (plan.sampleRate, 0, channels, &recorder);

        if (result == veltratune_io::kResultOk)
            return;

        const auto words = session.words();
        session.device().LeaveMeasurementMode(); // the recorder is borrowed until then, failure or not

        switch (result)
        {
            case veltratune_io::kResultBadSampleRate:
                throw Failure (kExitUsage,
                               "The receiver does not work at " + std::to_string (plan.sampleRate) + " Hz.");

            case veltratune_io::kResultTooManyChannels:
                throw Failure (kExitUsage, "The receiver does not have " + std::to_string (channels) + " channels.");

            default: throw Failure (kExitReceiver, "The receiver does not enter measurement mode: " + words + ".");
        }
    }

    ~MeasurementMode() { leave(); }

    MeasurementMode (const MeasurementMode&) = delete;
    MeasurementMode& operator= (const MeasurementMode&) = delete;

    /** @returns  whether the receiver did so */
    bool leave()
    {
        if (left)
            return true;

        left = true;
        return session.device().LeaveMeasurementMode();
    }

private:
    DeviceSession& session;
    bool left = false;
};

/** A playing stimulus, from construction to destruction. */
class PlayingStimulus
{
public:
    PlayingStimulus (DeviceSession& sessionToUse, const MeasurementPlan& plan) : session (sessionToUse)
    {
        const auto count = static_cast<std::uint32_t> (plan.channels.size());

        if (session.device().StartStimulus (plan.stimulus, plan.channels.data(), count, 0) != veltratune_io::kResultOk)
            throw Failure (kExitReceiver, "The receiver does not play the stimulus: " + session.words() + ".");
    }

    ~PlayingStimulus()
    {
        if (! ended)
            session.device().StopStimulus();
    }

    PlayingStimulus (const PlayingStimulus&) = delete;
    PlayingStimulus& operator= (const PlayingStimulus&) = delete;

    /** Asks the receiver. */
    bool hasEnded()
    {
        silentAnswers = session.device().IsStimulusPlaying() ? 0 : silentAnswers + 1;
        ended = silentAnswers >= kSilentAnswers;
        return ended;
    }

private:
    DeviceSession& session;
    int silentAnswers = 0;
    bool ended = false;
};

/** @returns  false when goOn ended it */
bool captureTail (const MeasurementPlan& plan, const CaptureRecorder& recorder, const std::function<bool()>& goOn)
{
    const auto enough = recorder.samples().size() + samplesOf (plan.tail_s, plan.sampleRate);
    const auto latest = Clock::now() + std::chrono::duration<double> (plan.tail_s + kTailPatience_s);

    while (recorder.samples().size() < enough && Clock::now() < latest)
    {
        if (! goOn())
            return false;

        std::this_thread::sleep_for (kPollInterval);
    }

    return true;
}

}

std::size_t captureCapacity (const MeasurementPlan& plan)
{
    // Room for what a receiver that is faster than real time sends between two looks.
    constexpr double spare_s = 30.0;
    return samplesOf (plan.longest_s + plan.tail_s + spare_s, plan.sampleRate);
}

bool measure (DeviceSession& session, const MeasurementPlan& plan, CaptureRecorder& recorder,
              const std::function<bool()>& goOn)
{
    MeasurementMode mode (session, plan, recorder);
    bool complete = false;

    {
        PlayingStimulus playing (session, plan);
        const auto latest = Clock::now() + std::chrono::duration<double> (plan.longest_s);
        const auto most = samplesOf (plan.longest_s, plan.sampleRate);

        while (! complete && goOn() && Clock::now() < latest && recorder.samples().size() < most)
        {
            std::this_thread::sleep_for (kPollInterval);
            complete = playing.hasEnded();
        }
    }

    complete = complete && captureTail (plan, recorder, goOn);

    if (! mode.leave())
        throw Failure (kExitReceiver, "The receiver does not leave measurement mode: " + session.words() + ".");

    return complete;
}

}
