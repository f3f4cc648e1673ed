// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/veltra/filters/ChannelMatch.h"
#include "tools/veltra/filters/FilterDescription.h"

namespace veltra::host {

/** What to make a filter description of. */
struct ImportOptions
{
    std::vector<std::filesystem::path> files;      ///< their names give channel and rate
    std::filesystem::path mapping;                 ///< lists further files; may be empty
    std::string channelOrder;                      ///< see numberChannels
    std::vector<ReceiverChannel> receiverChannels; ///< see placeChannels; empty: numberChannels decides
    bool partial = false;                          ///< for receiverChannels
    std::string project;
    std::string technology;
    unsigned leadIn = 0; ///< zeros in front of every response
};

/** Makes a filter description out of impulse responses.

    The channels are in ascending order of number or in the receiver's order, and their responses in ascending order
    of rate, whatever the order of the files. A channel's largest gain is that of the loudest of its rates.

    @param report  receives a line for each file: length, peak, largest gain
    @param notes   receives a line for each thing that is probably not meant: a rate that only some channels
                   have, a response longer than the second of it that counts
    @throws        Failure (kExitInput, kExitUsage): a channel's rate given twice, a rate that the file itself
                   contradicts, silence, and what the reading functions refuse; kExitChannels: channels that the
                   receiver does not have, or that have no file
*/
FilterDescription importFilters (const ImportOptions& options, std::ostream& report, std::ostream& notes);

}
