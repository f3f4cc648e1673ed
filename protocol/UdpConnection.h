// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

#include "common/Threads.h"
#include "protocol/Connection.h"

namespace veltra::ipc {

/** A datagram socket with a reader thread, and a simple message framing over datagrams:

        word      4   random
        check     4   that word XOR 0x8FB67C4A
        size      4   bytes of the body
        crc       4   over the body
        body          in the rest of this datagram and in those that follow

    in the sender's byte order, which is little-endian here. A class with another protocol overrides handleRead.

    A final class calls startReading at the end of its constructor and stopReading first in its destructor, so that the
    thread never uses an object that is only partly constructed.
*/
class UdpConnection : public juce::Thread,
                      public Connection
{
public:
    static constexpr int kMaximumDatagramSize = 65536;

    /** The largest message that handleDatagram collects; a header with a larger size is not recognised. */
    static constexpr std::uint32_t kMaximumMessageSize = 16 * 1024 * 1024;

    /** Binds the socket; port 0 lets the system choose.
        @param threadPriority  below 0 there is no reader thread
        @param bindAddress     an IPv4 address of this machine, or empty for all */
    UdpConnection (int port, int threadPriority, const juce::String& bindAddress);
    ~UdpConnection() override;

    /** True when the socket has a bound port. */
    bool isConnected() override;

    /** The empty text. */
    juce::String getName() override;

    /** @throws std::logic_error, always: a datagram needs a destination */
    int write (const void* data, int size) override;

    int getHeaderSize() override;
    bool send (juce::MemoryOutputStream& stream, const Destination& destination = {}) override;

    /** Reads until the thread is told to exit. */
    void run() override;

    /** Takes one datagram of the framing above. @returns true when it completed a message, which onData has got */
    virtual bool handleDatagram (const void* data, int size, const juce::String& senderIp, int senderPort);

    /** Called on the reader thread when there is something to read. @returns true when a message was completed */
    virtual bool handleRead();

    /** Starts the thread if the socket is bound and the priority asks for one. */
    void startReading();

    /** Stops the thread and shuts the socket. Waits for a running handler to return. May be called again. */
    void stopReading();

protected:
    juce::DatagramSocket socket;

private:
    const int priority;
    NativeThreadEnd threadEnd;
    std::uint32_t received = 0;  // bytes of the current message so far
    std::uint32_t remaining = 0; // bytes still to come
    std::uint32_t crc = 0;       // expected
    juce::MemoryBlock message;
};

}
