// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ModuleFile.h"

#include <fstream>

#include "common/SettingKeys.h"
#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/platform/Process.h"
#include "tools/veltra/filters/XmlText.h"
#include "tools/veltra/session/StrictNumber.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

using keys::Kind;

bool isOfKind (Kind kind, const std::string& value)
{
    const auto semicolon = value.find (';');

    switch (kind)
    {
        case Kind::wholeNumber: return strictNumber<int> (value).has_value();
        case Kind::number: return strictNumber<double> (value).has_value();

        case Kind::flag:
            return strictNumber<int> (value)
                   || juce::StringArray { "true", "yes", "on", "false", "no", "off" }.contains (juceText (value), true);

        case Kind::pairOfNumbers:
            return semicolon != value.npos && strictNumber<double> (value.substr (0, semicolon))
                   && strictNumber<double> (value.substr (semicolon + 1));

        case Kind::text: break;
    }

    return true;
}

}

void checkSetting (const std::string& key, const std::string& value)
{
    std::string known;

    for (const auto& setting : keys::kAll)
    {
        if (key == setting.key && isOfKind (setting.kind, value))
            return;

        if (key == setting.key)
            throw Failure (kExitUsage, "'" + value + "' is not a value of the setting " + key + "; expected "
                                           + setting.expected + ".");

        known += (known.empty() ? "" : ", ") + std::string (setting.key);
    }

    throw Failure (kExitUsage, "The module has no setting " + key + "; it has " + known + ".");
}

juce::PropertySet propertySet (const ModuleSettings& settings)
{
    juce::PropertySet set;

    for (const auto& [key, value] : settings)
        set.setValue (juceText (key), juceText (value));

    return set;
}

const char* moduleFileName() noexcept { return VELTRA_MODULE_FILE_NAME; }

fs::path programFolder() { return platform::programFile().parent_path(); }

fs::path findModule (const fs::path& given, const fs::path& programFolder)
{
    std::error_code ignored;

    if (! given.empty())
    {
        if (! fs::is_regular_file (given, ignored))
            throw Failure (kExitModule, "There is no module " + given.string() + ".");

        return fs::absolute (given);
    }

    for (const char* const folder : { ".", VELTRA_MODULE_FROM_PROGRAM, "../lib" })
    {
        const auto candidate = programFolder / folder / moduleFileName();

        if (fs::is_regular_file (candidate, ignored))
            return fs::canonical (candidate);
    }

    throw Failure (kExitModule, std::string (moduleFileName()) + " was not found near " + programFolder.string()
                                    + "; say where it is with --module FILE.");
}

std::string settingsFileText (const ModuleSettings& settings)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<PROPERTIES>\n";

    for (const auto& [key, value] : settings)
        text += "  <VALUE name=\"" + escapedXml (key) + "\" val=\"" + escapedXml (value) + "\"/>\n";

    return text + "</PROPERTIES>\n";
}

ModuleCopy::ModuleCopy (const fs::path& module, const ModuleSettings& settings)
    : folder (makePrivateFolder),
      copy (folder.path() / module.filename())
{
    std::error_code error;

    if (! fs::copy_file (module, copy, error))
        throw Failure (kExitModule, "The module " + module.string() + " could not be copied: " + error.message() + ".");

    std::ofstream file (fs::path (copy).replace_extension ("settings"), std::ios::binary);
    file << settingsFileText (settings);

    if (! file.flush())
        throw Failure (kExitOutput, "The module's settings could not be written to " + folder.path().string() + ".");
}

}
