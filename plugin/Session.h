// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include <juce_data_structures/juce_data_structures.h>

#include "plugin/DeviceImpl.h"
#include "protocol/Connection.h"
#include "protocol/Dispatcher.h"

namespace veltra::plugin {

/** An open session: a device and its connection, which is not made again: when it drops, the device's operations
    fail. */
struct Session
{
    Session() = default;
    Session (const Session&) = delete; // moving would assign, and so destroy, the dispatcher first
    Session& operator= (const Session&) = delete;

    std::unique_ptr<veltraio::Dispatcher> dispatcher;
    std::unique_ptr<DeviceImpl> device; // after its dispatcher, so destroyed before it
};

/** Asks a receiver for its descriptions and makes its first device. Blocks for up to 7 seconds.

    @param friendlyName  name for people that the search found; may be empty
    @param settings      borrowed; must outlive the session
    @returns             null when a description does not arrive, which is logged, or when there is no device
    @throws              std::bad_alloc
*/
std::unique_ptr<Session> openSession (std::unique_ptr<veltra::ipc::Connection> connection,
                                      const juce::String& friendlyName, juce::PropertySet& settings);

}
