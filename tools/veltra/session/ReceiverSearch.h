// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

/** A receiver that was found on the network. */
struct FoundReceiver
{
    std::string name;    ///< its owner's name for it; empty when it has none
    std::string address; ///< HOST:PORT
    std::string model;   ///< maker and model; empty when it does not answer
};

/** Searches the network as the module does, which itself gives no addresses away.

    @param options  where and what the search logs
    @param onFound  called on the calling thread, for each receiver once, soon after it has answered
    @returns        all of them
    @throws         Failure (kExitOutput)
*/
std::vector<FoundReceiver> searchReceivers (std::chrono::milliseconds duration, const SessionOptions& options,
                                            const std::function<void (const FoundReceiver&)>& onFound);

/** How long the module would search, by its setting "UPnPTimeout". */
std::chrono::milliseconds searchTime (const SessionOptions& options);

/** One line for a person. */
std::string lineOf (const FoundReceiver& receiver);

/** Searches for the only receiver of the network, and reports the search on standard error.

    @returns  its address
    @throws   Failure (kExitNoReceiver) when there is none, or when there are several, which it names
*/
std::string onlyReceiver (const SessionOptions& options);

}
