// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The keys of the module's settings file; docs/architecture.md says what each does. They match with their case.
*/

namespace veltra::keys {

inline constexpr const char* kDevice = "Device";
inline constexpr const char* kST = "ST";
inline constexpr const char* kUPnPTimeout = "UPnPTimeout";
inline constexpr const char* kTimeout = "Timeout";
inline constexpr const char* kNoEqCompensateLimits = "NoEqCompensateLimits";
inline constexpr const char* kFilterDataChunkTimeout = "FilterDataChunkTimeout";
inline constexpr const char* kFilterDataChunkRetries = "FilterDataChunkRetries";
inline constexpr const char* kBlobPath = "BlobPath";
inline constexpr const char* kMaxFilterAttenuation = "MaxFilterAttenuation";

/** What the value of a setting is. */
enum class Kind
{
    text,
    flag,          ///< 1, true, yes, on, 0, false, no, off
    wholeNumber,   ///< decimal
    number,        ///< decimal
    pairOfNumbers, ///< two decimals joined by ";"
};

struct Setting
{
    const char* key;
    Kind kind;
};

/** All settings, for a program that checks what it writes. */
inline constexpr Setting kAll[] {
    { kDevice, Kind::text },
    { kST, Kind::text },
    { kUPnPTimeout, Kind::wholeNumber },
    { kTimeout, Kind::flag },
    { kNoEqCompensateLimits, Kind::pairOfNumbers },
    { kFilterDataChunkTimeout, Kind::wholeNumber },
    { kFilterDataChunkRetries, Kind::wholeNumber },
    { kBlobPath, Kind::text },
    { kMaxFilterAttenuation, Kind::number },
};

}
