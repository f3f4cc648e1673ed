// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "veltratune_io/Device.h"

namespace veltra::host {

/** An output channel as Device::GetChannelName describes it. */
struct Channel
{
    std::string name;
    std::uint32_t number = 0; ///< the number by which the device knows it, modulo 256: the text has no more
    bool subwoofer = false;
    bool takesFilter = true;
};

/** Reads the marks "#SUB", "#IDXxx" and "#NOEQ" behind a channel's name. The name itself may hold a "#"; a text
    without the mark "#IDX" is all name, with the number 0. */
Channel channelFromText (std::string_view text);

/** All channels of a device, in its order. */
std::vector<Channel> outputChannels (const veltratune_io::Device& device);

/** A channel by its name or, when no channel has that name, by its number.
    @throws  Failure (kExitUsage) with the names that there are
*/
std::uint32_t channelNumber (const veltratune_io::Device& device, const std::string& nameOrNumber);

}
