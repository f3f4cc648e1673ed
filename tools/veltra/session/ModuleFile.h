// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include <juce_data_structures/juce_data_structures.h>

#include "tools/output/Transient.h"

namespace veltra::host {

/** Settings of the module, by key; docs/settings.md lists them. */
using ModuleSettings = std::map<std::string, std::string>;

/** Checks a setting that a user gives.
    @throws  Failure (kExitUsage) for a key that the module does not have, and for a value that is not of the key's kind */
void checkSetting (const std::string& key, const std::string& value);

/** The settings as the parts of the module take them. */
juce::PropertySet propertySet (const ModuleSettings& settings);

/** File name of the module on this system. */
const char* moduleFileName() noexcept;

/** Folder of the running program, or an empty path when the system does not say. */
std::filesystem::path programFolder();

/** Finds the module's file.

    @param given          the user's choice, which must exist; when empty, the first that exists of
                          moduleFileName() in programFolder and in the library folders that lie beside it in an
                          installed tree and in a build tree
    @param programFolder  folder of this program
    @throws               Failure (kExitModule)
*/
std::filesystem::path findModule (const std::filesystem::path& given, const std::filesystem::path& programFolder);

/** The text of the module's settings file. Values are taken as they are, whatever characters they hold.
    @throws  Failure (kExitUsage) for a control character
*/
std::string settingsFileText (const ModuleSettings& settings);

/** A copy of the module in a private folder with a settings file beside it, which is where the module reads its
    settings; a symbolic link does not serve, since the module resolves it. The folder goes with
    the object, so the module must have been unloaded before (POSIX systems do not mind).
*/
class ModuleCopy
{
public:
    /** @throws  Failure (kExitModule, kExitOutput, kExitUsage) */
    ModuleCopy (const std::filesystem::path& module, const ModuleSettings& settings);

    const std::filesystem::path& path() const noexcept { return copy; }

private:
    Transient folder;
    std::filesystem::path copy;
};

}
