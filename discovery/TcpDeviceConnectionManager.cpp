// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/TcpDeviceConnectionManager.h"

#include <utility>

#include "common/Log.h"
#include "common/Numbers.h"
#include "common/Text.h"
#include "discovery/ScanHandler.h"
#include "protocol/TcpDeviceConnection.h"

namespace veltraio {

juce::String TcpDeviceConnectionManager::getName() { return "TCP"; }

std::int32_t TcpDeviceConnectionManager::getKind() { return 0; }

std::unique_ptr<DeviceScanner> TcpDeviceConnectionManager::createScanner (IScanCallback* callback,
                                                                          const juce::String& searchTarget)
{
    return std::make_unique<upnp::ScanHandler> (callback, searchTarget);
}

std::unique_ptr<veltra::ipc::Connection> TcpDeviceConnectionManager::connect (const juce::String& address)
{
    const auto host = address.upToFirstOccurrenceOf (":", false, false);
    const auto port = veltra::toInt (address.fromFirstOccurrenceOf (":", false, false).toStdString());
    auto connection = std::make_unique<TcpDeviceConnection> (address);

    if (connection->connect (host, port, connectTimeout_ms))
        return connection;

    VELTRA_LOG (ERROR, "VeltraIO: Failed to connect to " << veltra::logText (address.toStdString()));
    return nullptr;
}

void TcpDeviceConnectionManager::enableKeepAlive (Dispatcher& dispatcher, std::function<void()> connectionLost)
{
    if (auto* connection = dynamic_cast<TcpDeviceConnection*> (&dispatcher.getConnection()))
        connection->enablePing (dispatcher, std::move (connectionLost));
}

}
