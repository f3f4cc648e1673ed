// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <juce_data_structures/juce_data_structures.h>

/** @file What the topology handlers share: counts from the parameter string, the limit of a blob, and words for
    failures that more than one of them knows. Any thread. */

namespace veltra::topology {

/** Largest blob that a conversion makes. No device holds as much; what asks for more is a broken or hostile
    parameter string. */
inline constexpr std::uint64_t kMaxBlobBytes = 64u * 1024u * 1024u;

inline constexpr const char* kParameterOutOfRange = "Required topology parameter out of range";

/** Value of a parameter that counts something; a text that is no number counts 0.
    @returns  nothing when the number is negative
*/
std::optional<std::uint32_t> countParameter (const juce::StringPairArray& parameters, const char* key);

/** Size in bytes of a blob that holds the same number of 32-bit words for each channel.
    @returns  nothing when it is above kMaxBlobBytes
*/
std::optional<size_t> blobSize (std::uint64_t channels, std::uint64_t wordsPerChannel);

/** The failure of a conversion that meets a channel without a response at its rate: zeros in its place would
    silence the loudspeaker. */
juce::Result noFilterResponse (const std::string& channelName, unsigned sampleRate);

}
