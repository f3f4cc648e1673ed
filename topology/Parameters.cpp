// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/Topology.h"

namespace veltra::topology {

juce::StringPairArray parseParameters (const juce::String& text)
{
    // A pair array looks through all of its keys to add one. No device has more than a handful of parameters, so
    // what follows behind this many comes from nobody who means well.
    constexpr int maxPairs = 1024;
    int pairs = 0;

    juce::StringPairArray parameters;

    for (const auto& item : juce::StringArray::fromTokens (text, ";", {}))
    {
        const auto tokens = juce::StringArray::fromTokens (item, "=", {});

        if (tokens.size() != 2)
            continue;

        parameters.set (tokens[0], tokens[1]);

        if (++pairs == maxPairs)
            break;
    }

    return parameters;
}

}
