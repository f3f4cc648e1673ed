// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>

#include <juce_core/juce_core.h>

/** @file
    The description of a device: an XML document at the LOCATION of its answer to a search, in which a vendor extension
    tells that the device speaks our protocol, and on which TCP port. Either of these children of "device" does, the
    prefix being declared on the root element:

        <ir:x_features xmlns:ir="urn:schemas-frontier-silicon-com:ir-1-0">VeltraIO-6000</ir:x_features>
        <v:x_port xmlns:v="urn:schemas-veltra-lab:veltraio-1-0">6000</v:x_port>

    The first good one ends the reading, so that a friendlyName that stands behind it is not seen.
*/

namespace upnp {

/** Fetches the description at a location and reads it as readDescription does. Every failure is logged. Any thread,
    several at once; returns within the limits of httpGet.

    @param shouldStop      ends the fetch when it returns true; nothing is logged then
    @param mayUseLoopback  as HttpLimits::mayUseLoopback
    @returns whether the device speaks our protocol
*/
bool getDeviceInfo (const juce::String& location, juce::String& address, juce::String& friendlyName,
                    const std::function<bool()>& shouldStop, bool mayUseLoopback = true);

/** Reads the text of a description.

    @param location      where the document came from; its host is the device's, whatever the document says
    @param address       set to "TCP:" host ":" port when the device speaks our protocol
    @param friendlyName  set when that element was read, at most maximumTextSize bytes of its text
    @returns whether the device speaks our protocol
*/
bool readDescription (const juce::String& document, const juce::String& location, juce::String& address,
                      juce::String& friendlyName);

/** Bytes of a friendly name or an extension element that are used. */
inline constexpr int maximumTextSize = 1024;

}
