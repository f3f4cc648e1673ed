// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What makes the library a loadable module: the three exported functions, and what happens at load and unload.
*/

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "common/Contain.h"
#include "common/NativeThreadEnd.h"
#include "plugin/Files.h"
#include "plugin/Logging.h"
#include "plugin/PluginImpl.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

using namespace veltra::plugin;
using veltra::guarded;

void onLoad() noexcept
{
    guarded ([] {
        moduleFile();
        silenceUnusedLog();
    });
}

#if ! defined(_WIN32) // where the module's handle arrives with DllMain, after the static objects are made
[[maybe_unused]] const bool loaded = (onLoad(), true);
#endif

/** The plug-in objects that the module has handed out. The host borrows them. */
class PluginList
{
public:
    PluginList() = default;
    ~PluginList()
    {
        while (! plugins.empty())
            plugins.erase (plugins.begin());
    }

    PluginList (const PluginList&) = delete;
    PluginList& operator= (const PluginList&) = delete;

    veltratune_io::Plugin* create (std::uint32_t version)
    {
        if (version != veltratune_io::kPluginInterfaceVersion)
            return nullptr;

        auto plugin = std::make_unique<PluginImpl> (settingsFile());

        if (plugin->GetName() == nullptr)
            return nullptr;

        return plugins.emplace_back (std::move (plugin)).get();
    }

    /** A pointer that is not in the list is left alone. */
    void destroy (const veltratune_io::Plugin* plugin)
    {
        const auto found = std::find_if (plugins.begin(), plugins.end(),
                                         [plugin] (const auto& owned) { return owned.get() == plugin; });

        if (found != plugins.end())
            plugins.erase (found);
    }

private:
    std::vector<std::unique_ptr<PluginImpl>> plugins;
};

/** What is left over when the module is unloaded or the process ends is destroyed here: objects with their
    connections first, so that their last lines still reach the log. */
struct ModuleState
{
    LogFiles log;
    PluginList plugins;
};

/** Set when the process ends in a way that has ended all threads but one: what waits for them would wait for ever. */
bool threadsHaveBeenEnded = false;

struct StateOwner
{
    std::unique_ptr<ModuleState> state = std::make_unique<ModuleState>();

    ~StateOwner()
    {
        if (threadsHaveBeenEnded)
            static_cast<void> (state.release());
    }
};

/** Made at the first use: after all static objects of the code below, and so destroyed before them. */
ModuleState& state()
{
    static StateOwner owner;
    return *owner.state;
}

}

#if defined(_WIN32)
BOOL WINAPI DllMain (HINSTANCE instance, DWORD reason, LPVOID processEnds)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        juce::Process::setCurrentModuleInstanceHandle (instance);
        onLoad();
    }

    if (reason == DLL_PROCESS_DETACH)
    {
        threadsHaveBeenEnded = processEnds != nullptr;
        veltra::NativeThreadEnd::libraryIsBeingUnloaded();
    }

    return TRUE;
}
#endif

veltratune_io::Plugin* GetVersionedPluginObject (std::uint32_t version)
{
    return guarded<veltratune_io::Plugin*> (nullptr, [version] { return state().plugins.create (version); });
}

void ReleaseVersionedPluginObject (veltratune_io::Plugin* plugin)
{
    if (plugin == nullptr)
        return;

    guarded ([plugin] { state().plugins.destroy (plugin); });
    guarded ([] { state().log.stop(); });
}

void SetLogPath (const char* path, std::int32_t length, std::int32_t level)
{
    constexpr std::int32_t nulTerminated = -1;

    if (path == nullptr || length < nulTerminated)
        return;

    const auto bytes = length == nulTerminated ? std::strlen (path) : static_cast<std::size_t> (length);
    guarded ([=] { state().log.add ({ path, bytes }, level); });
}
