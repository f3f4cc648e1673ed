// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/DeviceSession.h"

#include <vector>

#include "common/Numbers.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/session/ReceiverSearch.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

/** The module's settings, an address among them: the module would open a session with every receiver that it finds. */
ModuleSettings settingsOf (const SessionOptions& options)
{
    auto settings = options.settings;

    if (! options.device.empty())
        settings["Device"] = deviceSetting (options.device);
    else if (settings["Device"].empty())
        settings["Device"] = "TCP:" + onlyReceiver (options);

    return settings;
}

}

std::string deviceSetting (const std::string& address)
{
    const std::string prefix = "TCP:";
    const auto place = address.starts_with (prefix) ? address.substr (prefix.size()) : address;
    const auto colon = place.rfind (':');

    if (colon != std::string::npos && colon > 0)
    {
        const auto port = place.substr (colon + 1);
        const bool digits = ! port.empty() && port.find_first_not_of ("0123456789") == std::string::npos;

        if (digits && toInt (port) >= 1 && toInt (port) <= 65535)
            return prefix + place;
    }

    throw Failure (kExitUsage, "'" + address + "' is no address; it should read HOST:PORT, such as 192.0.2.10:6000.");
}

DeviceSession::DeviceSession (const SessionOptions& options)
    : module (findModule (options.module, programFolder())),
      settings (settingsOf (options)),
      copy (module, settings),
      library (copy.path()),
      release (library.function<ReleasePlugin> ("ReleaseVersionedPluginObject"))
{
    const auto getPlugin = library.function<GetPlugin> ("GetVersionedPluginObject");
    startLog (options);
    plugin = getPlugin (veltratune_io::kPluginInterfaceVersion);

    if (plugin == nullptr)
        throw Failure (kExitModule, "The module does not offer version "
                                        + std::to_string (veltratune_io::kPluginInterfaceVersion)
                                        + " of its interface.");

    try
    {
        if (! plugin->FindDevices())
        {
            // The module tells no reasons outside its log.
            throw Failure (kExitNoReceiver, "No receiver answers at " + settings.at ("Device")
                                                + " as it should; a log tells more (--log FILE --log-level DEBUG).");
        }

        veltratune_io::Device* first = nullptr;
        veltratune_io::Device* second = nullptr;

        if (! plugin->GetDevice (0, &first) || first == nullptr)
            throw Failure (kExitModule, "The module found a receiver and does not hand it out.");

        if (plugin->GetDevice (1, &second))
            throw Failure (kExitNoReceiver, std::string ("Several receivers answer, among them ") + first->GetName()
                                                + " and " + second->GetName()
                                                + "; choose one with --device HOST:PORT.");

        theDevice = static_cast<veltratune_io::Device2*> (first);
    }
    catch (...)
    {
        release (plugin);
        throw;
    }
}

DeviceSession::~DeviceSession() { release (plugin); }

void DeviceSession::startLog (const SessionOptions& options)
{
    if (options.log.empty())
        return;

    // The module says nothing about a log that it cannot write.
    const auto path = fs::absolute (options.log);
    library.function<SetLog> ("SetLogPath") (path.string().c_str(), -1, options.logLevel);

    if (! fs::is_regular_file (path))
        throw Failure (kExitOutput, "The log " + path.string() + " cannot be written.");
}

std::string DeviceSession::words()
{
    auto text = textFrom ([this] (char* buffer, std::uint32_t size) { theDevice->GetLastError (buffer, size); });

    while (! text.empty() && (text.back() == '.' || text.back() == ' ' || text.back() == '\n'))
        text.pop_back();

    return text.empty() ? "it gave no reason" : text;
}

std::string textFrom (const std::function<void (char*, std::uint32_t)>& operation)
{
    std::vector<char> buffer (1u << 16, '\0');
    operation (buffer.data(), static_cast<std::uint32_t> (buffer.size()));
    buffer.back() = '\0';
    return buffer.data();
}

}
