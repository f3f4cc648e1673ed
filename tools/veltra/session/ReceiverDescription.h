// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "discovery/ConnectionManager.h"
#include "protocol/veltraio.pb.h"
#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

/** What a receiver says of itself. The module passes on only a part of it, and fills gaps with values of its own. */
struct ReceiverDescription
{
    veltraio::Unit unit; ///< with a device
    veltraio::TopologyInfo topologyInfo;

    const veltraio::Unit::Device& device() const { return unit.devices (0); }
};

/** Asks a receiver for its unit over a connection of its own.
    @param address  HOST:PORT
    @returns        nothing when it cannot be reached or does not answer within 5 s */
std::optional<veltraio::Unit> readUnit (veltraio::ConnectionManager& connections, const std::string& address);

/** Asks a receiver for its description over a connection of its own, which is closed again: some receivers serve one
    session at a time. Before the module is loaded.
    @param options  with an address, see withAddress
    @throws         Failure (kExitNoReceiver, kExitOutput) */
ReceiverDescription describeReceiver (const SessionOptions& options);

/** What a receiver says about a slot now, as a sentence: after a download that did not come to its end. No session of
    the module need be open. */
std::string slotSentence (const std::string& address, std::uint32_t slot);

/** Whether a receiver says that a slot is occupied; nothing when it does not answer. */
std::optional<bool> slotIsOccupied (const std::string& address, std::uint32_t slot);

}
