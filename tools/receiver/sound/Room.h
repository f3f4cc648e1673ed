// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include <Eigen/Core>

namespace veltra::receiver {

/** The room that the simulated receiver stands in: one impulse response from each loudspeaker to the microphone.
    One thread at a time. */
class Room
{
public:
    struct Options
    {
        /** WAV files measured_CHANNEL_RATE.wav, each the response of the loudspeaker of that channel name. Empty:
            a room that is nothing but a delay. */
        std::filesystem::path folder;

        /** Delay of channels that no file gives a response for, in ms. */
        double delay_ms = 3.0;
    };

    /** Reads the files.
        @throws std::runtime_error with words for a person: a folder that cannot be read or holds no response, a
                file that is no mono WAV file, a delay out of range */
    explicit Room (const Options&);

    /** The response of a channel at a sample rate. It is resampled when there is a file for another rate only, so
        that its frequency response stays what it was. The reference stays good as long as the room. */
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
