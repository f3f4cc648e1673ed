#pragma once

#include <string_view>

#include <juce_core/juce_core.h>

namespace veltraio {

/** A text that came from the network.

    Protobuf's lite classes do not check that a string is UTF-8, and juce::String walks off the end of a text that stops
    in the middle of a character. So whatever a peer calls a text passes through here: each byte that belongs to no
    well-formed character becomes "?", and the text ends at the first NUL.
*/
juce::String peerText (std::string_view bytes);

}
