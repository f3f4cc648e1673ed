#include "protocol/PeerText.h"

#include "common/Utf8.h"

namespace veltraio {

juce::String peerText (std::string_view bytes)
{
    const auto text = veltra::toValidUtf8 (bytes.substr (0, bytes.find ('\0')));
    return juce::String::fromUTF8 (text.data(), static_cast<int> (text.size()));
}

}
