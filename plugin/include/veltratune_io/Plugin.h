// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "veltratune_io/Device.h"
#include "veltratune_io/Version.h"

/** @file
    The module's exported functions and the object behind them.

    A host loads the module, calls SetLogPath (optional), GetVersionedPluginObject (5), Plugin::FindDevices and
    Plugin::GetDevice, works with the devices, and calls ReleaseVersionedPluginObject before it unloads the
    module. The operations of one object from one thread at a time; the exported functions from any. No function throws.
    Texts are NUL-terminated UTF-8.

    What a process may do meanwhile: signals neither end a wait early nor make it longer, and the module's threads leave them
    to the host's. A process that ends while its threads are in operations waits for them for up to 3 s, in which they
    fail; afterwards they all fail at once. A forked process leaves the objects of the other alone: release drops them, and
    the session goes on where they were made. A thread that is cancelled by pthread_cancel ends between two exchanges with the
    device, or in the wait for a reply; what it was doing is then undone or incomplete as after a lost connection.

    Settings are read from an XML file beside the module, with the module's name and the extension "settings"
    (<PROPERTIES><VALUE name="Device" val="TCP:192.0.2.1:6000"/></PROPERTIES>), once, when a plug-in object is made.
    The keys are in settings.md, and the texts that DownloadFilterSet takes in filter-description.md, which are
    installed among the documents.

    These headers need C++11 and nothing but the standard library.
*/

namespace veltratune_io {

/** The version of this interface. */
constexpr std::uint32_t kPluginInterfaceVersion = VELTRATUNE_IO_INTERFACE_VERSION;

/** Owned by the module; borrowed by the host until ReleaseVersionedPluginObject. The host cannot delete it. The order of
    the operations is the binary interface; the destructor is the first of them. */
class Plugin
{
protected:
    VELTRATUNE_IO_DESTRUCTOR (Plugin)

public:
    /** The same text as GetVendor. Belongs to the module, as the following do. */
    virtual const char* GetName() const = 0;
    virtual const char* GetVendor() const = 0;
    virtual const char* GetVersion() const = 0;
    virtual const char* GetDate() const = 0;

    /** Looks for receivers and opens a session with each. Blocks for the time of the search (the setting
        "UPnPTimeout"; none when the setting "Device" gives an address) and of some exchanges with the receivers, which
        are made with all of them at once: up to 9 s. The devices have the order of the search, whichever answers first.
        A second call adds to what the first found.

        @returns  true when the object holds a device afterwards
    */
    virtual bool FindDevices() = 0;

    /** One of the devices found.

        @param index   in the order of discovery, from 0
        @param device  receives the borrowed device, which is also a Device2
        @returns       false when index is beyond the last device; the out value is then left alone
    */
    virtual bool GetDevice (std::uint32_t index, Device** device) = 0;
};

/** The exported functions' types, for what the system's loader returns, and their names, for what it is given. Their
    declarations below state their contract. */
using GetVersionedPluginObjectFunction = Plugin* (*)(std::uint32_t version);
using ReleaseVersionedPluginObjectFunction = void (*) (Plugin* plugin);
using SetLogPathFunction = void (*) (const char* path, std::int32_t length, std::int32_t level);

constexpr const char* kGetVersionedPluginObjectName = "GetVersionedPluginObject";
constexpr const char* kReleaseVersionedPluginObjectName = "ReleaseVersionedPluginObject";
constexpr const char* kSetLogPathName = "SetLogPath";

}

#if defined(_WIN32)
#if defined(VELTRATUNE_IO_BUILDS_MODULE)
#define VELTRATUNE_IO_EXPORT __declspec(dllexport)
#else
#define VELTRATUNE_IO_EXPORT
#endif
#else
#define VELTRATUNE_IO_EXPORT __attribute__ ((visibility ("default")))
#endif

extern "C"
{
    /** Makes a plug-in object, which stays the module's, and reads its settings.

    @param version  veltratune_io::kPluginInterfaceVersion
    @returns        null for any other version
*/
    VELTRATUNE_IO_EXPORT veltratune_io::Plugin* GetVersionedPluginObject (std::uint32_t version);

    /** Ends an object's life, with its devices and their connections, and ends logging for the whole module: all appenders
    are taken from log4cplus's root logger, the host's own too, and its level is what SetLogPath found, unless the host has
    changed it since. Waits for a call of the capture callback that is running. From inside a callback it does nothing but
    to write an ERROR line; release when the operation has returned.
    @param plugin  may be null, which does nothing at all
*/
    VELTRATUNE_IO_EXPORT void ReleaseVersionedPluginObject (veltratune_io::Plugin* plugin);

    /** Starts a log file, appending to what is there, and sets the level of log4cplus's root logger. Its folder is made; when
    that fails, or the path is a folder, nothing changes and nothing is reported. Devices and pipes with a reader are
    written to without waiting. Before it, only what the host has attached to the root logger gets lines.

    @param path    UTF-8
    @param length  of the path in bytes; -1 for a NUL-terminated one
    @param level   of log4cplus: TRACE 0, DEBUG 10000, INFO 20000, WARN 30000, ERROR 40000, FATAL 50000, OFF 60000
*/
    VELTRATUNE_IO_EXPORT void SetLogPath (const char* path, std::int32_t length, std::int32_t level);
}
