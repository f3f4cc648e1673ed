// SPDX-License-Identifier: GPL-3.0-or-later

/*  The shortest useful host: loads the module, finds the receivers, and says what they are.

    Which receiver is found is the module's own setting: with a file MorvaneVeltraIO.settings beside the module

        <?xml version="1.0" encoding="UTF-8"?>
        <PROPERTIES><VALUE name="Device" val="TCP:127.0.0.1:6000"/></PROPERTIES>

    it goes straight to that address; without one it searches the network.
*/

#include <dlfcn.h>

#include <cstdio>

#include <veltratune_io/Plugin.h>

int main (int argc, char** argv)
{
    const char* const path = argc > 1 ? argv[1] : VELTRA_MODULE;
    void* const module = dlopen (path, RTLD_NOW | RTLD_LOCAL);

    if (module == nullptr)
    {
        std::fprintf (stderr, "%s\n", dlerror());
        return 1;
    }

    const auto getPlugin = reinterpret_cast<veltratune_io::GetVersionedPluginObjectFunction> (
        dlsym (module, veltratune_io::kGetVersionedPluginObjectName));
    const auto release = reinterpret_cast<veltratune_io::ReleaseVersionedPluginObjectFunction> (
        dlsym (module, veltratune_io::kReleaseVersionedPluginObjectName));

    auto* const plugin = getPlugin != nullptr ? getPlugin (veltratune_io::kPluginInterfaceVersion) : nullptr;

    if (plugin == nullptr || release == nullptr)
    {
        std::fprintf (stderr, "%s is not a module of interface version %u\n", path,
                      veltratune_io::kPluginInterfaceVersion);
        return 1;
    }

    if (! plugin->FindDevices())
        std::puts ("No receiver found.");

    veltratune_io::Device* device = nullptr;

    for (unsigned i = 0; plugin->GetDevice (i, &device); ++i)
    {
        std::printf ("%s\n", device->GetName());
        char name[64] = "";

        for (unsigned channel = 0; channel < device->GetChannelCount(); ++channel)
            if (device->GetChannelName (channel, name, sizeof (name)) == veltratune_io::kResultOk)
                std::printf ("  %s\n", name);
    }

    release (plugin);
    dlclose (module);
    return 0;
}
