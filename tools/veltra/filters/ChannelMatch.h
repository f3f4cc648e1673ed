// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltra::host {

/** A channel of a receiver, in the list of those that it takes filters for. */
struct ReceiverChannel
{
    std::string name;         ///< as the receiver spells it
    std::uint32_t number = 0; ///< the receiver's own, from 0
    bool takesFilter = true;  ///< false: it accepts a filter and plays without it
};

/** A filter of a description. */
struct NamedFilter
{
    std::string name;
    std::uint32_t number = 0; ///< of the channel, from 0
};

struct MatchOptions
{
    bool byNumber = false; ///< by the number instead of the name
    bool partial = false;  ///< filters without a channel and channels without a filter are left out
};

/** Which filter goes to which channel; both are places in the lists that were matched. */
struct ChannelPair
{
    std::size_t filter = 0;
    std::size_t channel = 0;
};

/** The result of a match: what goes where, and what is wrong with it. */
struct ChannelMatch
{
    std::vector<ChannelPair> pairs;   ///< in the receiver's order
    std::vector<std::size_t> surplus; ///< filters without a channel
    std::vector<std::size_t> missing; ///< channels without a filter that need one
    std::vector<std::size_t> twice;   ///< filters that share their channel with another one
    std::string problem;              ///< why this must not be sent, without a full stop; empty when it may
};

/** Matches filters with the channels of a receiver, by name without regard to the case of A to Z, or by number.

    A filter or a channel that occurs twice is a problem always; surplus filters and missing channels are one unless
    the options say partial. A channel that takes no filter is missing only when a later channel has one: the gains of
    a download go by place.
    Any thread.
*/
ChannelMatch matchChannels (const std::vector<NamedFilter>& filters, const std::vector<ReceiverChannel>& channels,
                            MatchOptions options);

/** The match as a table for a person, a line for each filter and each missing channel, control characters escaped. */
std::string matchTable (const ChannelMatch& match, const std::vector<NamedFilter>& filters,
                        const std::vector<ReceiverChannel>& channels);

}
