// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The description of a device. The first line of the input is where it came from, the rest is the document.
*/

#include "common/Text.h"
#include "common/Xml.h"
#include "discovery/DeviceDescription.h"
#include "fuzz/FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using veltra::fuzz::require;

    auto body = veltra::fuzz::asText (data, size);
    const auto location = veltra::juceText (veltra::fuzz::cutUpTo ('\n', body));

    juce::String address, friendlyName;
    const bool isDevice = upnp::readDescription (veltra::xmlText (body), location, address, friendlyName);

    require (! isDevice || address.startsWith ("TCP:"), "a device has an address");
    require (isDevice || address.isEmpty(), "without a device there is no address");
    require (friendlyName.getNumBytesAsUTF8() <= upnp::maximumTextSize, "a name is bounded");
    require (juce::CharPointer_UTF8::isValidString (friendlyName.toRawUTF8(),
                                                    static_cast<int> (friendlyName.getNumBytesAsUTF8())),
             "a name is a text");
    return 0;
}
