// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Files.h"

#include <cstdio>
#include <filesystem>
#include <memory>
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

std::string readFile (const juce::File& file, std::size_t most)
{
    const auto& path = file.getFullPathName();
#if defined(_WIN32)
    std::FILE* const opened = ::_wfopen (path.toWideCharPointer(), L"rbN");
#else
    std::FILE* const opened = std::fopen (path.toRawUTF8(), "rbe");
#endif
    const std::unique_ptr<std::FILE, int (*) (std::FILE*)> stream (opened, &std::fclose);

    if (stream == nullptr)
        return {};

    std::string bytes (most, '\0');
    bytes.resize (std::fread (bytes.data(), 1, most, stream.get()));
    return bytes;
}

}
