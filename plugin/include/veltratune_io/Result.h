// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

namespace veltratune_io {

/** Result of the operations of Device and Device2. Zero is success; 2 and 6 are gaps in the numbering. */
enum EResult : std::int32_t
{
    kResultOk = 0,
    kResultFailed = 1,          ///< not sent, refused, timed out or nothing there; GetLastError may have a text
    kResultBadIndex = 3,        ///< channel index out of range
    kResultBadArgument = 4,     ///< null pointer
    kResultNotSupported = 5,    ///< the operation exists and does nothing here
    kResultChannelConflict = 7, ///< a filter set for the same channel already lies in the slot
    kResultBadFilterText = 8,   ///< the filter description could not be parsed
    kResultBadTechnology = 9,   ///< a topology technology other than "FIIR" was asked for
    kResultBufferTooSmall = 10, ///< the text did not fit the caller's buffer
    kResultBadSampleRate = 11,  ///< the device does not offer this sample rate
    kResultTooManyChannels = 12 ///< more channels than the device has
};

}
