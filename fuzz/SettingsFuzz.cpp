// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The settings file. The input is its text.
*/

#include <unistd.h>

#include "fuzz/FuzzTarget.h"
#include "plugin/Settings.h"

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using namespace veltra::plugin;
    using veltra::fuzz::require;

    static const juce::TemporaryFile temporary ("_" + juce::String (getpid()) + ".settings");
    const auto& file = temporary.getFile();
    require (file.replaceWithData (data, size), "the file can be written");

    const auto settings = openSettings (file);

    for (const auto* key : { "Device", "ST", "BlobPath", "NoEqCompensateLimits", "MaxFilterAttenuation" })
        settings->getValue (key).toStdString();

    const auto& keys = settings->getAllProperties().getAllKeys();

    for (const auto& key : keys)
    {
        const int number = readInt (*settings, key, 7, 0, kLongestSearch_ms);
        require (number >= 0 && number <= kLongestSearch_ms, "a number is within its bounds");
        readBool (*settings, key, true);
    }

    juce::MemoryBlock left;
    require (size == 0 || (file.loadFileAsData (left) && left.matches (data, size)), "the file is never written");
    return 0;
}
