// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/SharedLibrary.h"

#include <string>

#include "tools/ExitStatus.h"
#include "tools/platform/Process.h"

namespace veltra::host {

namespace {

/** The system gives the effect and not the cause. */
std::string hintFor (const std::string& reason)
{
    return reason.find ("failed to map segment") == reason.npos
               ? std::string()
               : " Its folder may be mounted without the right to run programs (noexec); set TMPDIR to another one.";
}

}

SharedLibrary::SharedLibrary (const std::filesystem::path& fileToLoad)
    : file (fileToLoad),
      handle (platform::loadLibrary (fileToLoad))
{
    if (handle != nullptr)
        return;

    const auto reason = platform::libraryError();
    throw Failure (kExitModule, "The module could not be loaded: " + reason + "." + hintFor (reason));
}

SharedLibrary::~SharedLibrary() { platform::unloadLibrary (handle); }

void* SharedLibrary::address (const char* name) const
{
    if (void* const found = platform::findSymbol (handle, name))
        return found;

    throw Failure (kExitModule,
                   file.filename().string() + " is not a module of this kind: it does not export " + name + ".");
}

}
