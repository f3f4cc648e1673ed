// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/SharedLibrary.h"

#include <string>

#include "tools/ExitStatus.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace veltra::host {

namespace {

#if defined(_WIN32)
void* load (const std::filesystem::path& file) { return LoadLibraryW (file.c_str()); }
void unload (void* handle) { FreeLibrary (static_cast<HMODULE> (handle)); }

void* find (void* handle, const char* name)
{
    return reinterpret_cast<void*> (GetProcAddress (static_cast<HMODULE> (handle), name));
}

std::string reason() { return "error " + std::to_string (GetLastError()); }
#else
void* load (const std::filesystem::path& file) { return dlopen (file.c_str(), RTLD_NOW | RTLD_LOCAL); }
void unload (void* handle) { dlclose (handle); }
void* find (void* handle, const char* name) { return dlsym (handle, name); }

std::string reason()
{
    const char* const words = dlerror();
    return words != nullptr ? words : "unknown reason";
}
#endif

}

SharedLibrary::SharedLibrary (const std::filesystem::path& fileToLoad) : file (fileToLoad), handle (load (fileToLoad))
{
    if (handle == nullptr)
        throw Failure (kExitModule, "The module could not be loaded: " + reason() + ".");
}

SharedLibrary::~SharedLibrary() { unload (handle); }

void* SharedLibrary::address (const char* name) const
{
    if (void* const found = find (handle, name))
        return found;

    throw Failure (kExitModule, file.filename().string() + " is no module of this kind: it has no " + name + ".");
}

}
