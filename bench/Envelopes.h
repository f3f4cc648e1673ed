// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>

#include <juce_core/juce_core.h>

#include "protocol/Envelope.h"
#include "protocol/veltraio.pb.h"

namespace veltra::bench {

using veltraio::kEnvelopeMarkerText;

/** A message's whole envelope. */
template <class T>
std::string envelopeOf (const T& message)
{
    juce::MemoryBlock marker;
    marker.loadFromHexString (kEnvelopeMarkerText);
    juce::MemoryOutputStream stream;

    if (! veltraio::putEnvelope (stream, marker, veltraio::IdType<T>::value, message))
        throw std::logic_error ("incomplete message");

    return { static_cast<const char*> (stream.getData()), stream.getDataSize() };
}

inline std::string acknowledgement()
{
    veltraio::Acknowledge message;
    message.set_ok (true);
    return envelopeOf (message);
}

}
