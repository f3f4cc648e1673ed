// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/veltra/filters/ChannelMatch.h"
#include "tools/veltra/formats/FilterChain.h"

namespace veltra::host {

/** A file with the impulse response of one channel at one sample rate, or with what makes one. */
struct ImpulseFile
{
    std::string channel;
    unsigned sampleRate = 0; ///< Hz
    std::filesystem::path path;
    std::optional<unsigned> part {};               ///< which channel of the file, counted from 0
    std::shared_ptr<const FilterChain> chain {};   ///< instead of samples in the file
    std::optional<double> gain_dB {}, delay_ms {}; ///< of the channel, where a mapping says it
};

/** A channel with a file, of which one channel may be named: "FL=room.wav" or "FL=room.wav:0".
    @returns  without a sample rate
    @throws   Failure (kExitUsage) */
ImpulseFile channelFile (std::string_view text);

/** The names in a channel order, see numberChannels.
    @throws  Failure (kExitUsage) */
std::vector<std::string> namesInOrder (std::string_view order);

/** Takes channel and rate out of a file's name: "FL_48000.wav" is channel FL at 48000 Hz. The rate is behind
    the last "_".
    @throws  Failure (kExitInput)
*/
ImpulseFile impulseFileFromName (const std::filesystem::path& file);

/** A delay such as "4.2ms" or "48smp@48000".
    @returns  nothing for other texts and for more than 10 s */
std::optional<double> delayIn_ms (std::string_view text);

/** Reads a mapping file: a line for each impulse response with channel, rate and file name apart by blanks, and between rate
    and file name gain=DB and delay=DELAY of the channel where they are wanted. A name may hold blanks itself and is meant
    relative to the mapping file's folder; empty lines and lines that begin with "#" are skipped.
    @throws  Failure (kExitInput)
*/
std::vector<ImpulseFile> readMapping (const std::filesystem::path& file);

/** A channel's place in the filter description. */
struct ChannelPlace
{
    std::string name;
    unsigned number = 0; ///< from 1; the receiver's own number of the channel plus 1
};

/** Numbers the channels of an import.

    @param files  the files to import
    @param order  names separated by ","; a name is numbered one above the name before it, from 1, unless it
                  says its number itself as in "LFE=12". Empty: the channels of files in order of first appearance
    @returns      in ascending order of number
    @throws       Failure (kExitUsage) when a channel is in one of the two only, or a name or number twice
*/
std::vector<ChannelPlace> numberChannels (const std::vector<ImpulseFile>& files, std::string_view order);

/** Gives the channels of an import the order and the numbers of a receiver's channels of the same names.

    @param files    their channels are spelt as the receiver spells them afterwards
    @param partial  files without a channel and channels without a file are left out
    @returns        in the receiver's order
    @throws         Failure (kExitChannels)
*/
std::vector<ChannelPlace> placeChannels (std::vector<ImpulseFile>& files, const std::vector<ReceiverChannel>& channels,
                                         bool partial);

}
