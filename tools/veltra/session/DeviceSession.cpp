// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/DeviceSession.h"

#include <vector>

#include "common/SettingKeys.h"
#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/session/ReceiverSearch.h"
#include "tools/veltra/session/StrictNumber.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

/** The module's settings, an address among them: the module would open a session with every receiver that it finds. */
ModuleSettings settingsOf (const SessionOptions& options)
{
    auto settings = options.settings;
    settings[keys::kDevice] = deviceSetting (options.device);
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
        const auto port = strictNumber<std::uint16_t> (place.substr (colon + 1));

        if (port && *port > 0)
            return prefix + place;
    }

    throw Failure (kExitUsage, "'" + address + "' is not an address; expected HOST:PORT, such as 192.0.2.10:6000.");
}

SessionOptions withAddress (SessionOptions options)
{
    findModule (options.module, programFolder());

    if (options.device.empty())
        if (const auto setting = options.settings.find (keys::kDevice); setting != options.settings.end())
            options.device = setting->second;

    options.device = options.device.empty() ? onlyReceiver (options) : deviceSetting (options.device).substr (4);
    return options;
}

Failure noReceiver (const std::string& address)
{
    return { kExitNoReceiver,
             "No receiver answers at " + address + " as it should; its log says more (--log FILE --log-level debug)." };
}

DeviceSession::DeviceSession (const SessionOptions& given)
    : options (withAddress (given)),
      copy (findModule (options.module, programFolder()), settingsOf (options)),
      library (copy.path()),
      release (library.function<veltratune_io::ReleaseVersionedPluginObjectFunction> (
          veltratune_io::kReleaseVersionedPluginObjectName))
{
    const auto getPlugin = library.function<veltratune_io::GetVersionedPluginObjectFunction> (
        veltratune_io::kGetVersionedPluginObjectName);
    startLog();
    plugin = getPlugin (veltratune_io::kPluginInterfaceVersion);

    if (plugin == nullptr)
        throw Failure (kExitModule, "The module does not offer version "
                                        + std::to_string (veltratune_io::kPluginInterfaceVersion)
                                        + " of its interface.");

    try
    {
        if (! plugin->FindDevices())
            throw noReceiver (options.device);

        veltratune_io::Device* first = nullptr;

        if (! plugin->GetDevice (0, &first) || first == nullptr)
            throw Failure (kExitModule, "The module found a receiver and does not return it.");

        theDevice = static_cast<veltratune_io::Device2*> (first);
    }
    catch (...)
    {
        release (plugin);
        throw;
    }
}

DeviceSession::~DeviceSession() { release (plugin); }

void DeviceSession::startLog()
{
    if (options.log.empty())
        return;

    // The module says nothing about a log that it cannot write.
    const auto path = fs::absolute (options.log);
    const auto setLogPath = library.function<veltratune_io::SetLogPathFunction> (veltratune_io::kSetLogPathName);
    setLogPath (path.string().c_str(), -1, options.logLevel);

    if (! fs::is_regular_file (path))
        throw Failure (kExitOutput, "The log " + path.string() + " cannot be written.");
}

std::string DeviceSession::words()
{
    auto text = textFrom ([this] (char* buffer, std::uint32_t size) { theDevice->GetLastError (buffer, size); });

    while (! text.empty() && (text.back() == '.' || text.back() == ' ' || text.back() == '\n'))
        text.pop_back();

    return text.empty() ? "it gave no reason" : logText (text);
}

std::string textFrom (const std::function<void (char*, std::uint32_t)>& operation)
{
    std::vector<char> buffer (1u << 16, '\0');
    operation (buffer.data(), static_cast<std::uint32_t> (buffer.size()));
    buffer.back() = '\0';
    return buffer.data();
}

}
