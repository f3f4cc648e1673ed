// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Files.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace veltra::plugin {

const juce::File& moduleFile()
{
    // Looked up by the address of code that is linked into the module; one symbolic link is resolved.
    static const juce::File file = juce::File::getSpecialLocation (juce::File::currentExecutableFile);
    return file;
}

juce::File settingsFile() { return moduleFile().withFileExtension ("settings"); }

bool isOrdinaryFile (const juce::File& file)
{
    const auto path = file.getFullPathName().toStdString();
    std::error_code ignored;
    return std::filesystem::is_regular_file (std::filesystem::path (std::u8string (path.begin(), path.end())), ignored);
}

}
