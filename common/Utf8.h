#pragma once

#include <string>
#include <string_view>

namespace veltra {

/** The text with every byte that is not part of a well-formed UTF-8 sequence replaced by "?".

    Text from files and from the network passes through here on its way to juce::String, whose character
    pointer runs past the end of a text that stops in the middle of a sequence.
*/
std::string toValidUtf8 (std::string_view text);

}
