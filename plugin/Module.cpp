// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What makes the library a loadable module: the three exported functions, and what happens at load and unload.
*/

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include <log4cplus/logger.h>

#include "common/Contain.h"
#include "common/GuestProcess.h"
#include "common/Log.h"
#include "common/NativeThreadEnd.h"
#include "plugin/Files.h"
#include "plugin/HostCall.h"
#include "plugin/Logging.h"
#include "plugin/PluginImpl.h"

#if defined(_WIN32)
#include <windows.h>
#elif defined(__GLIBC__)
#include <unistd.h>
#endif

namespace {

using namespace veltra::plugin;
using veltra::guarded;

/** Tells an unload from the end of the process, and ends forked children.

    When the module is unloaded, the functions that are marked as destructors run before those of static objects; when the
    process ends, exit calls the static objects' first. */
class EndOfModule
{
public:
    /** log4cplus ends by waiting for threads of its own, which a forked child does not have, and the child would hang in exit.
        Its static objects are older than the module's, so they are next when this one is destroyed. */
    ~EndOfModule()
    {
#if defined(__GLIBC__)
        if (process != veltra::processId() && ! unloading)
            ::on_exit (
                [] (int status, void*) {
                    std::fflush (nullptr);
                    ::_exit (status);
                },
                nullptr);
#endif
    }

    /** Where nobody knows: true. */
    static bool isUnload() noexcept { return unloading; }

private:
#if defined(__GLIBC__)
    __attribute__ ((destructor)) static void noteUnload() { unloading = true; }
    static inline bool unloading = false;
#else
    static constexpr bool unloading = true;
#endif

    const int process = veltra::processId();
};

[[maybe_unused]] const EndOfModule endOfModule;

void onLoad()
{
    guarded ([] { moduleFile(); });
    veltra::keepLibraryOf (reinterpret_cast<const void*> (&log4cplus::Logger::getRoot)); // its threads never end
}

#if ! defined(_WIN32) // where the module's handle arrives with DllMain, after the static objects are made
[[maybe_unused]] const bool loaded = (onLoad(), true);
#endif

/** The plug-in objects that the module has handed out. The host borrows them. Any thread. */
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

        Owned plugin (std::make_unique<PluginImpl> (settingsFile()).release());

        if (plugin->GetName() == nullptr)
            return nullptr;

        const std::lock_guard guard (mutex);
        return plugins.emplace_back (std::move (plugin)).get();
    }

    /** A pointer that is not in the list is left alone. */
    void destroy (const veltratune_io::Plugin* plugin)
    {
        Owned found; // destroyed without the lock: its threads may be in a callback that makes an object

        {
            const std::lock_guard guard (mutex);
            const auto at = std::find_if (plugins.begin(), plugins.end(),
                                          [plugin] (const auto& owned) { return owned.get() == plugin; });

            if (at == plugins.end())
                return;

            found = std::move (*at);
            plugins.erase (at);
        }
    }

    /** For the end of the process: keeps all objects for good, for threads that may still use them.
        @param endSessions  whether to end their connections first */
    void keep (bool endSessions)
    {
        if (endSessions)
            for (const auto& plugin : plugins)
                plugin->endSessions();

        [[maybe_unused]] static std::vector<Owned>* kept;
        kept = std::make_unique<std::vector<Owned>> (std::move (plugins)).release();
    }

private:
    /** An object that a process was forked with has its threads and its session in the other process. This one only drops it,
        and its copy of the socket is closed when it ends. */
    struct DestroyInItsProcess
    {
        void operator() (PluginImpl* plugin) const noexcept
        {
            if (process == veltra::processId())
                delete plugin;
        }

        int process = veltra::processId();
    };
    using Owned = std::unique_ptr<PluginImpl, DestroyInItsProcess>;

    std::mutex mutex;
    std::vector<Owned> plugins;
};

/** What is left over when the module is unloaded or the process ends is destroyed here: objects with their
    connections first, so that their last lines still reach the log. */
struct ModuleState
{
    ~ModuleState()
    {
        if (process != veltra::processId())
        {
            log.forget();
            return;
        }

        // A process that ends does not wait for its threads, and one of them may be in an operation, or between two.
        constexpr std::chrono::milliseconds longest { 2500 };

        if (! EndOfModule::isUnload())
            guarded ([this, longest] { plugins.keep (HostCall::endAll (longest)); });
    }

    const int process = veltra::processId();
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

    // Its thread would wait for itself, or come back into an object that is gone.
    if (HostCall::isInsideOne())
    {
        VELTRA_LOG (ERROR, "ReleaseVersionedPluginObject was called from a callback, the object stays");
        return;
    }

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
