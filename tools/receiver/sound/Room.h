// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include <Eigen/Core>

namespace veltra::receiver {

/** The simulated room: one impulse response from each loudspeaker to the microphone.
    One thread at a time. */
class Room
{
public:
    struct Options
    {
        /** WAV files measured_CHANNEL_RATE.wav, each the response of the loudspeaker of that channel name. Empty:
            the room is a delay only. */
        std::filesystem::path folder;

        /** Delay of channels that no file gives a response for, in ms. */
        double delay_ms = 3.0;
    };

    /** Reads the files.
        @throws std::runtime_error for a folder that cannot be read or contains no response, a file that is not a mono
                WAV file, or a delay out of range */
    explicit Room (const Options&);

    /** The response of a channel at a sample rate. It is resampled when there is a file for another rate only, so
        that its frequency response stays what it was. The reference is valid as long as the room. */
    const Eigen::VectorXf& response (const std::string& channelName, std::uint32_t sampleRate);

    /** Whether a file gives the channel's response. */
    bool hasMeasured (const std::string& channelName) const { return measured.contains (channelName); }

private:
    Eigen::VectorXf makeResponse (const std::string& channelName, std::uint32_t sampleRate) const;

    const double delay_ms;
    std::map<std::string, std::map<std::uint32_t, Eigen::VectorXf>> measured; // by channel name and rate
    std::map<std::pair<std::string, std::uint32_t>, Eigen::VectorXf> responses;
};

}
