// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/SharedLibrary.h"

#include <string>

#include "tools/ExitStatus.h"
#include "tools/platform/Platform.h"

namespace veltra::host {

SharedLibrary::SharedLibrary (const std::filesystem::path& fileToLoad)
    : file (fileToLoad),
      handle (platform::loadLibrary (fileToLoad))
{
    if (handle == nullptr)
        throw Failure (kExitModule, "The module could not be loaded: " + platform::libraryError() + ".");
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
