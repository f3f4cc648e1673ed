// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ModuleFile.h"

#include <fstream>

#include "tools/ExitStatus.h"
#include "tools/platform/Platform.h"
#include "tools/veltra/filters/XmlText.h"

namespace fs = std::filesystem;

namespace veltra::host {

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
