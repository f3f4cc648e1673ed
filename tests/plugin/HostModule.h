// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include <dlfcn.h>

#include "tools/veltra/session/ModuleFile.h"
#include "tools/veltra/session/SharedLibrary.h"
#include "veltratune_io/Device.h"
#include "veltratune_io/Plugin.h"

namespace veltra::test {

/** The module, loaded as a host loads it. */
class HostModule
{
    std::optional<host::SharedLibrary> library;

public:
    explicit HostModule (const std::filesystem::path& file)
        : library (std::in_place, file),
          get (library->function<veltratune_io::GetVersionedPluginObjectFunction> (
              veltratune_io::kGetVersionedPluginObjectName)),
          release (library->function<veltratune_io::ReleaseVersionedPluginObjectFunction> (
              veltratune_io::kReleaseVersionedPluginObjectName)),
          setLogPath (library->function<veltratune_io::SetLogPathFunction> (veltratune_io::kSetLogPathName))
    {
    }

    void unload() { library.reset(); }

    /** Whether a file is loaded in this process. */
    static bool isLoaded (const std::filesystem::path& file)
    {
        void* const loaded = dlopen (file.c_str(), RTLD_NOW | RTLD_NOLOAD);

        if (loaded != nullptr)
            dlclose (loaded);

        return loaded != nullptr;
    }

    static veltratune_io::Device2& device (veltratune_io::Plugin& plugin)
    {
        veltratune_io::Device* found = nullptr;
        plugin.GetDevice (0, &found);
        return static_cast<veltratune_io::Device2&> (*found);
    }

    const veltratune_io::GetVersionedPluginObjectFunction get;
    const veltratune_io::ReleaseVersionedPluginObjectFunction release;
    const veltratune_io::SetLogPathFunction setLogPath;
};

}
