// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include <juce_data_structures/juce_data_structures.h>

/** @file
    The settings file beside the module, read once when a plug-in object is made and never written. Keys match
    with their case; a key that is not there gives the caller's fallback. Values are looked up at the moment of
    use, from any thread.
*/

namespace veltra::plugin {

/** Reads a settings file. One that is missing, no XML or too big (1 MiB, elements nested 64 deep) gives an empty
    set. */
std::unique_ptr<juce::PropertiesFile> openSettings (const juce::File& file);

/** 1, true, yes and on mean true; 0, false, no and off mean false, whatever the case. Other numbers are true
    unless 0; other texts give the fallback. */
bool readBool (const juce::PropertySet& settings, juce::StringRef key, bool fallback);

/** The whole number that a value starts with, 0 for a text that is no number, limited to the range given. A
    fallback is taken as it is. */
int readInt (const juce::PropertySet& settings, juce::StringRef key, int fallback, int lowest, int highest);

/** Limits of the settings that could otherwise keep the host waiting for days. */
inline constexpr int kLongestSearch_ms = 10 * 60 * 1000;
inline constexpr int kLongestChunkTimeout_ms = 60 * 1000;
inline constexpr int kMostChunkRetries = 100;

}
