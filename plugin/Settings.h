// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include <juce_data_structures/juce_data_structures.h>

#include "common/SettingKeys.h"

/** @file
    The settings file beside the module, read once when a plug-in object is made and never written. Keys match
    with their case; a key that is not there gives the caller's fallback. Values are looked up at the moment of
    use, from any thread.
*/

namespace veltra::plugin {

/** Reads a settings file. One that is missing or not XML gives an empty set; so does one of more than 1 MiB or with
    elements nested more than 64 deep, which leaves a line in the log. */
std::unique_ptr<juce::PropertiesFile> openSettings (const juce::File& file);

/** 1, true, yes and on mean true; 0, false, no and off mean false, whatever the case. Other numbers are true
    unless 0; other texts give the fallback. */
bool readBool (const juce::PropertySet& settings, juce::StringRef key, bool fallback);

/** A setting that is a whole number, with limits that keep the host from waiting for days. */
struct IntSetting
{
    const char* key;
    int fallback; ///< when the key is absent
    int highest;
    int ifNegative; ///< what a value below 0 means
};

inline constexpr IntSetting kSearchTime_ms { keys::kUPnPTimeout, 6000, 10 * 60 * 1000, 0 };

/** A negative time is converted to an unsigned one, and so means the longest wait. */
inline constexpr IntSetting kChunkTimeout_ms { keys::kFilterDataChunkTimeout, 3000, 60 * 1000, 60 * 1000 };

inline constexpr IntSetting kChunkAttempts { keys::kFilterDataChunkRetries, 5, 100, 0 };

/** The whole number that the value starts with, 0 for a text that is not a number, within the setting's limits. */
int readInt (const juce::PropertySet& settings, const IntSetting& setting);

/** Writes a line to the log when readInt gives another number than the one in the file. */
void logIfLimited (const juce::PropertySet& settings, const IntSetting& setting);

}
