// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The answers to a search. The byte 0xFF in the input separates two datagrams.
*/

#include <utility>
#include <vector>

#include "discovery/SsdpMessages.h"
#include "fuzz/FuzzTarget.h"

namespace {

using veltra::fuzz::require;

/** A reader that remembers whom it found. */
class Search
{
public:
    void take (std::string_view datagram)
    {
        reader.take (datagram);
        require (reader.pendingSize() <= upnp::AnswerReader::maximumPending, "what waits for its end is bounded");
    }

    std::vector<std::pair<juce::String, juce::String>> devices;

private:
    void add (const juce::String& usn, const juce::String& location)
    {
        for (const auto& text : { usn, location })
            require (text.isNotEmpty() && text.getNumBytesAsUTF8() <= upnp::AnswerReader::maximumValue,
                     "USN and LOCATION are there, and bounded");

        devices.emplace_back (usn, location);
    }

    upnp::AnswerReader reader { "urn:schemas-upnp-org:device:MediaRenderer:1",
                                [this] (const auto& usn, const auto& location) { add (usn, location); } };
};

}

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    Search pieces, whole;
    std::string everything;

    for (auto rest = veltra::fuzz::asText (data, size); ! rest.empty();)
    {
        const auto datagram = veltra::fuzz::cutUpTo ('\xff', rest);
        pieces.take (datagram);
        everything += datagram;
    }

    whole.take (everything);

    if (size <= upnp::AnswerReader::maximumPending)
        require (pieces.devices == whole.devices, "answers are the same wherever the datagrams end");

    return 0;
}
