// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "discovery/DeviceManager.h"

namespace veltraio {

/** Receivers over TCP; an address is host:port. */
class TcpDeviceConnectionManager final : public VeltraIODeviceManager
{
public:
    /** Of one attempt to connect, including the look-up of the name where the platform can bound that. */
    static constexpr int connectTimeout_ms = 2000;

    juce::String getName() override;
    std::int32_t getKind() override;
    std::unique_ptr<DeviceScanner> createScanner (IScanCallback* callback, const juce::String& searchTarget) override;
    std::unique_ptr<veltra::ipc::Connection> connect (const juce::String& address) override;
    void enableKeepAlive (Dispatcher& dispatcher, std::function<void()> connectionLost) override;
};

}
