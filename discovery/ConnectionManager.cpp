// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/ConnectionManager.h"

#include "discovery/TcpDeviceConnectionManager.h"
#include "protocol/EnvelopeParser.h"

namespace veltraio {

ConnectionManager::ConnectionManager (std::uint32_t kind, std::span<const std::uint8_t> marker) : scanKind (kind)
{
    setEnvelopeMarker (marker);
    managers.push_back (std::make_unique<TcpDeviceConnectionManager>());
}

std::unique_ptr<veltra::ipc::Connection> ConnectionManager::Connect (const juce::String& address)
{
    const auto transport = address.upToFirstOccurrenceOf (":", false, false);

    for (const auto& manager : managers)
        if (manager->getName() == transport)
            return manager->connect (address.fromFirstOccurrenceOf (":", false, false));

    return nullptr;
}

std::unique_ptr<DeviceScanner> ConnectionManager::CreateScanner (IScanCallback* callback,
                                                                 const juce::String& searchTarget)
{
    for (const auto& manager : managers)
        if (static_cast<std::uint32_t> (manager->getKind()) == scanKind)
            return manager->createScanner (callback, searchTarget);

    return nullptr;
}

}
