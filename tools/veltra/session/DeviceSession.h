// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "tools/ExitStatus.h"
#include "tools/veltra/session/ModuleFile.h"
#include "tools/veltra/session/SharedLibrary.h"
#include "veltratune_io/Plugin.h"

namespace veltra::host {

/** What every command that talks to a receiver is given. */
struct SessionOptions
{
    std::filesystem::path module; ///< empty: search for it
    std::string device;           ///< HOST:PORT; empty: the network is searched
    ModuleSettings settings;      ///< further settings of the module
    std::filesystem::path log;    ///< empty: no log
    int logLevel = 20000;         ///< of log4cplus
};

/** The setting "Device" for a receiver's address.

    @param address  HOST:PORT, with or without "TCP:" in front
    @throws         Failure (kExitUsage)
*/
std::string deviceSetting (const std::string& address);

/** The options with the receiver's address in `device`: the one given, that of the setting "Device", or that of the only
    receiver of the network, which is then searched for.
    @throws  Failure (kExitNoReceiver, kExitUsage), and before any search kExitModule when there is no module */
SessionOptions withAddress (SessionOptions options);

/** The failure of a receiver that does not answer as one. */
Failure noReceiver (const std::string& address);

/** The module loaded, and a session with one receiver, both for as long as the object lives.

    Everything reaches the receiver through the module's three exported functions and the classes of
    veltratune_io. Use from one thread.
*/
class DeviceSession
{
public:
    /** Loads the module and opens the session with the receiver at the address given, or with the only one of the
        network; blocks for the time of the search and of some exchanges.
        @throws  Failure (kExitModule, kExitNoReceiver, kExitOutput, kExitUsage)
    */
    explicit DeviceSession (const SessionOptions& given);
    ~DeviceSession();

    DeviceSession (const DeviceSession&) = delete;
    DeviceSession& operator= (const DeviceSession&) = delete;

    veltratune_io::Device2& device() noexcept { return *theDevice; }

    /** The module's text for the latest failure, which it then forgets; another text when it has none. Without a full
        stop, for the end of a sentence, and with control characters escaped. */
    std::string words();

private:
    void startLog();

    const SessionOptions options; ///< with an address
    ModuleCopy copy;
    SharedLibrary library;
    veltratune_io::ReleaseVersionedPluginObjectFunction release;
    veltratune_io::Plugin* plugin = nullptr;
    veltratune_io::Device2* theDevice = nullptr;
};

/** Calls an operation that fills a text buffer and returns the text, cut to 64 KiB; an operation that leaves
    the buffer alone gives an empty text. */
std::string textFrom (const std::function<void (char* buffer, std::uint32_t size)>& operation);

}
