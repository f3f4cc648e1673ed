// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

namespace veltra::host {

/** A shared library loaded into the program, for as long as the object lives. */
class SharedLibrary
{
public:
    /** @throws  Failure (kExitModule) with the system's reason */
    explicit SharedLibrary (const std::filesystem::path& file);
    ~SharedLibrary();

    SharedLibrary (const SharedLibrary&) = delete;
    SharedLibrary& operator= (const SharedLibrary&) = delete;

    /** An exported function, good as long as the object.
        @tparam FunctionPointer  its type, as veltratune_io/Plugin.h names the module's
        @throws                  Failure (kExitModule) when the library has no such export
    */
    template <typename FunctionPointer>
    FunctionPointer function (const char* name) const
    {
        return reinterpret_cast<FunctionPointer> (address (name));
    }

private:
    void* address (const char* name) const;

    std::filesystem::path file;
    void* handle = nullptr;
};

}
