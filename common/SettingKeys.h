// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The keys of the module's settings file; docs/settings.md says what each does. They match with their case.
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
    const char* expected = ""; ///< what its value is, for a sentence to the user
};

/** All settings, for a program that checks what it writes. */
inline constexpr Setting kAll[] {
    { kDevice, Kind::text },
    { kST, Kind::text },
    { kUPnPTimeout, Kind::wholeNumber, "a whole number of milliseconds" },
    { kTimeout, Kind::flag, "on or off" },
    { kNoEqCompensateLimits, Kind::pairOfNumbers, "two numbers of dB such as -3;6" },
    { kFilterDataChunkTimeout, Kind::wholeNumber, "a whole number of milliseconds" },
    { kFilterDataChunkRetries, Kind::wholeNumber, "a whole number" },
    { kBlobPath, Kind::text },
    { kMaxFilterAttenuation, Kind::number, "a number of dB" },
};

}
