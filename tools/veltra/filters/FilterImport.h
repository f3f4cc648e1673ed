// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/ChannelMatch.h"
#include "tools/veltra/filters/FilterDescription.h"

namespace veltra::host {

/** What to make a filter description of. */
struct ImportOptions
{
    /** Their names give channel and rate; a file of several channels holds those of channelOrder, and its rate. */
    std::vector<std::filesystem::path> files;

    std::vector<std::string> channelFiles; ///< NAME=FILE or NAME=FILE:N, see channelFile; the rate is the file's
    std::vector<std::string> equalizers;   ///< NAME=FILE with an equaliser's text, see readEqualizerText
    std::filesystem::path camilla;    ///< a camilladsp configuration for the channels of channelOrder; may be empty
    std::vector<unsigned> rates;      ///< at which equalisers and the configuration are made, Hz
    unsigned sectionTaps = 1;         ///< FIR taps in front of an equaliser's sections
    std::optional<RawFormat> raw;     ///< of files that end in .pcm, .raw or .dbl
    std::optional<unsigned> textRate; ///< of files that end in .txt, .csv or .dat and do not say it, Hz
    bool align = false;               ///< keep the time of each text's first sample, see readSampleText

    std::map<std::string, double> gains_dB;  ///< of channels
    std::map<std::string, double> delays_ms; ///< of channels

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

    A text's response begins at its time 0, or, with align, each with as much silence in front that time 0 is at the same
    place in all of them. The delay of an equaliser's text is added to its channel's.

    @param report  receives a line for each file: length, peak, largest gain; and one about channels with gains above 0 dB
    @param notes   receives a line for each thing that is probably not meant: a rate that only some channels
                   have, a response longer than the second of it that counts
    @throws        Failure (kExitInput, kExitUsage): a channel's rate given twice, a rate that the file itself
                   contradicts, silence, and what the reading functions refuse; kExitChannels: channels that the
                   receiver does not have, or that have no file
*/
FilterDescription importFilters (const ImportOptions& options, std::ostream& report, std::ostream& notes);

}
