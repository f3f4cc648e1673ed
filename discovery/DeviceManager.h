// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <juce_core/juce_core.h>

#include "discovery/Scanner.h"
#include "protocol/Connection.h"
#include "protocol/Dispatcher.h"

namespace veltraio {

/** One kind of transport to devices. */
class VeltraIODeviceManager
{
public:
    virtual ~VeltraIODeviceManager() = default;

    /** The text before the first colon of this transport's addresses. */
    virtual juce::String getName() = 0;

    virtual std::int32_t getKind() = 0;

    /** Starts a scan that reports to the callback, which must outlive it. Null when this transport cannot search. */
    virtual std::unique_ptr<DeviceScanner> createScanner (IScanCallback* callback,
                                                          const juce::String& searchTarget) = 0;

    /** @param address  what follows the transport's name and its colon
        @returns null on failure, which is logged */
    virtual std::unique_ptr<veltra::ipc::Connection> connect (const juce::String& address) = 0;

    /** Makes the dispatcher's connection check that its peer is alive; see TcpDeviceConnection::enablePing. */
    virtual void enableKeepAlive (Dispatcher& dispatcher, std::function<void()> connectionLost) = 0;
};

}
