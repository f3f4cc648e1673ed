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

    for (const auto& setting : veltra::keys::kAll)
        settings->getValue (setting.key).toStdString();

    for (const auto& setting : { kSearchTime_ms, kChunkTimeout_ms, kChunkAttempts })
    {
        const int number = readInt (*settings, setting);
        require (number >= 0 && number <= setting.highest, "a number is within its bounds");
    }

    for (const auto& key : settings->getAllProperties().getAllKeys())
        readBool (*settings, key, true);

    juce::MemoryBlock left;
    require (size == 0 || (file.loadFileAsData (left) && left.matches (data, size)), "the file is never written");
    return 0;
}
