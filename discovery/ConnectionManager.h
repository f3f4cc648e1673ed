// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <juce_core/juce_core.h>

#include "discovery/DeviceManager.h"
#include "discovery/Scanner.h"
#include "protocol/Connection.h"

namespace veltraio {

/** The one entry into transports: turns an address such as "TCP:192.168.1.20:12345" into a connection, and makes
    scanners. It outlives what it made. */
class ConnectionManager
{
public:
    /** @param scanKind  kind of the transport whose scanner is wanted; 0 is TCP
        @param marker    bytes that open each envelope, for the whole process; empty for the usual ones
        @throws std::invalid_argument for a marker of more than 64 bytes */
    explicit ConnectionManager (std::uint32_t scanKind, std::span<const std::uint8_t> marker = {});

    /** @returns null when the transport is unknown, which is not logged, or when the device could not be reached, which is
                 logged at ERROR. Blocks for about 2 seconds at most. Any thread, several
                 at once. */
    std::unique_ptr<veltra::ipc::Connection> Connect (const juce::String& address);

    /** Starts a scan that reports to the callback, which must outlive it.
        @param searchTarget  may be empty
        @returns null when no transport of the wanted kind can search */
    std::unique_ptr<DeviceScanner> CreateScanner (IScanCallback* callback, const juce::String& searchTarget);

private:
    const std::uint32_t scanKind;
    std::vector<std::unique_ptr<VeltraIODeviceManager>> managers;
};

}
