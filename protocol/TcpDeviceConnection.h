// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <memory>

#include <juce_core/juce_core.h>

#include "protocol/EnvelopeParser.h"
#include "protocol/TcpConnection.h"

namespace veltraio {

class Dispatcher;
class PingHandler;

/** The TCP connection to a receiver: reads envelopes instead of the generic framing and hands them, marker and length
    taken off, to the raw callback, which a Dispatcher sets. Sending is write, one whole envelope a call.

    When the receiver closes or resets the connection, the reader ends with a DEBUG line in the log. A close calls no
    listener; the connection stays as it is until its owner disconnects.
*/
class TcpDeviceConnection final : public veltra::ipc::TcpConnection,
                                  private VeltraIOEnvelopeParser
{
public:
    /** @param address  the host:port text that connect will be given, for the name */
    explicit TcpDeviceConnection (const juce::String& address);
    ~TcpDeviceConnection() override;

    /** "TCP:" and the address. */
    juce::String getName() override;

    /** Never waits for the peer: one attempt takes about 128 KiB at most. */
    int write (const void* data, int size) override;

    /** Waits for bytes and feeds them to the parser. A paused connection does not exist here. */
    bool poll() override;

    /** Makes the keep-alive with the first call and adds a callback for the loss of the connection. The callbacks run
        on the keep-alive's thread and must not destroy the connection. The dispatcher must own this connection. */
    void enablePing (Dispatcher& dispatcher, std::function<void()> callback);

private:
    void onEnvelope (const juce::MemoryBlock& block) override;

    const juce::String address;
    std::unique_ptr<PingHandler> pingHandler; // null until the keep-alive is enabled
};

}
