// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <juce_core/juce_core.h>

#include "protocol/Connection.h"
#include "protocol/SocketPlatform.h"

namespace veltra::ipc {

/** A connection over a TCP stream, with a reader thread.

    The framing of this class (8 bytes: the word 0xF2B49E2C and the body's size, both little-endian) is for direct users of
    this class; the device protocol brings its own, see veltraio::TcpDeviceConnection.

    Threads: write, isConnected and getName may be called from any thread at any time, also while another one
    disconnects. connect, attach and disconnect belong to one owner.
*/
class TcpConnection : public Connection
{
public:
    /** The largest message that the generic framing takes; a peer that announces more is disconnected. */
    static constexpr int kMaximumMessageSize = 16 * 1024 * 1024;

    /** With a priority of 0 or above there will be a reader thread of that priority once a socket is attached. */
    explicit TcpConnection (int threadPriority, int patience_ms = kHandlerPatience_ms);

    /** Disconnects. A derived class that overrides an operation of the reader thread calls disconnect in its own
        destructor, since the thread must not find the object half gone. Waits for a running handler to return,
        however long that takes. */
    ~TcpConnection() override;

    bool isConnected() override;
    juce::String getName() override;

    /** One attempt to send, which never raises a signal and gives up after some seconds in which the peer takes nothing.
        A short write is returned as it is and not continued. */
    int write (const void* data, int size) override;

    int getHeaderSize() override;
    bool send (juce::MemoryOutputStream& stream, const Destination& destination = {}) override;

    /** Drops an older connection and makes a new one. Looking up the name counts into the time, as do several addresses of
        one name. */
    virtual bool connect (const juce::String& host, int port, int timeoutMs);

    /** Wakes and stops the reader, within 4 seconds unless a handler does not return, and closes the socket. The flag
        has no effect. */
    virtual void disconnect (bool keepListeners);

    /** One turn of the reader thread; false ends the thread. */
    virtual bool poll();

    virtual void notifyConnected();
    virtual void notifyDisconnected();

    /** An extension point: true makes poll skip reading. */
    virtual bool isPaused();

    /** Takes a connected socket, in place of an older one, and starts to read from it. @returns false when the reader
        could not be started; the socket is then closed */
    bool attach (std::unique_ptr<juce::StreamingSocket> newSocket);

    virtual void onAttached();

    /** @returns the announced size of the body, or the number of bytes read (-1 for a dead socket) when those were no
        header */
    virtual int readHeader();

    /** Reads one message; false ends the thread. */
    virtual bool read();

    /** Called with true after a connect and with false when the socket has failed, with socketLock held. Filled
        before the first connect. */
    std::vector<std::function<void (bool)>> listeners;

protected:
    /** The socket as it is now, or null. It stays open while a copy of the pointer exists, so a disconnect on another thread
        never closes a handle that is in use. */
    std::shared_ptr<juce::StreamingSocket> getSocket() const;

    int write (const void* data, int size, platform::Blocking blocking);

    /** True on the reader thread when it has been asked to stop. */
    bool readerShouldExit() const;

private:
    class TcpThread;

    bool start (std::unique_ptr<juce::StreamingSocket> newSocket, const juce::String& name);

    juce::CriticalSection socketLock;
    std::shared_ptr<juce::StreamingSocket> socket; // null when closed
    juce::String hostName;                         // of socket
    const int threadPriority;
    std::unique_ptr<TcpThread> thread; // null when the priority is negative
};

}
