// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/TcpConnection.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "common/Contain.h"
#include "common/GuestProcess.h"
#include "common/Log.h"
#include "common/Threads.h"
#include "protocol/HostLookup.h"
#include "protocol/SocketPlatform.h"

namespace veltra::ipc {

namespace {

constexpr std::uint32_t kHeaderWord = 0xF2B49E2C;
constexpr int kHeaderSize = 4 + 4;
constexpr int kReaderStart_ms = 1000;
constexpr int kReaderStop_ms = 4000;

}

class TcpConnection::TcpThread final : public juce::Thread
{
public:
    explicit TcpThread (TcpConnection& owner) : juce::Thread ("TcpThread::TcpThread"), connection (owner) {}

    bool start (int wantedPriority)
    {
        if (! startThread (veltra::threadPriority (wantedPriority)))
            return false;

        started.wait (kReaderStart_ms);
        return true;
    }

    void askToStop()
    {
        signalThreadShouldExit();
        notify();
    }

    /** Below 0: however long it takes. A thread is never killed; that would end the process. */
    bool join (int timeoutMs)
    {
        if (! waitForThreadToExit (timeoutMs))
            return false;

        threadEnd.waitUntilGone();
        return true;
    }

private:
    void run() override
    {
        threadEnd.started();
        started.signal();

        while (! threadShouldExit())
        {
            // After a failure, of memory for example, the message is lost and the connection is not.
            bool more = true;
            contain ("A received message", [&] { more = connection.poll(); });

            if (! more)
                break;
        }
    }

    TcpConnection& connection;
    juce::WaitableEvent started;
    veltra::NativeThreadEnd threadEnd;
};

TcpConnection::TcpConnection (int priority, int patience_ms)
    : Connection (patience_ms),
      threadPriority (priority),
      thread (priority >= 0 ? std::make_unique<TcpThread> (*this) : nullptr)
{
}

TcpConnection::~TcpConnection()
{
    TcpConnection::disconnect (false);

    if (thread != nullptr)
        thread->join (-1);
}

std::shared_ptr<juce::StreamingSocket> TcpConnection::getSocket() const
{
    const juce::ScopedLock guard (socketLock);
    return socket;
}

bool TcpConnection::readerShouldExit() const { return thread != nullptr && thread->threadShouldExit(); }

bool TcpConnection::isConnected()
{
    const auto current = getSocket();
    return current != nullptr && current->isConnected();
}

juce::String TcpConnection::getName()
{
    const juce::ScopedLock guard (socketLock);
    return hostName;
}

int TcpConnection::write (const void* data, int size) { return write (data, size, platform::Blocking::yes); }

int TcpConnection::write (const void* data, int size, platform::Blocking blocking)
{
    // The lock protects the pointer only. A disconnect on another thread wakes the send, and the socket is closed
    // when the last copy of the pointer goes.
    const auto current = getSocket();

    if (current == nullptr || ! current->isConnected())
        return -1;

    return platform::sendBytes (current->getRawSocketHandle(), data, size, blocking);
}

int TcpConnection::getHeaderSize() { return kHeaderSize; }

bool TcpConnection::send (juce::MemoryOutputStream& stream, const Destination&)
{
    const auto size = static_cast<int> (stream.getDataSize());
    stream.setPosition (0);
    stream.writeInt (static_cast<int> (kHeaderWord));
    stream.writeInt (size - getHeaderSize());
    return write (stream.getData(), size) == size;
}

bool TcpConnection::connect (const juce::String& host, int port, int timeoutMs)
{
    disconnect (true);

    if (host.isEmpty() || port <= 0 || port > 65535)
        return false;

    using namespace std::chrono;
    const auto deadline = steady_clock::now() + milliseconds (timeoutMs);
    const auto addresses = lookUpHost (host.toStdString(), deadline, [] { return false; });

    for (auto address = addresses.begin(); address != addresses.end(); ++address)
    {
        // A fair share for each, so that one address that swallows everything leaves the others their chance.
        const auto left = duration_cast<milliseconds> (deadline - steady_clock::now()).count();
        const auto share = std::max<std::int64_t> (left / (addresses.end() - address), 1);
        auto candidate = std::make_unique<juce::StreamingSocket>();
        const HeldSignals guard; // JUCE begins its time anew after each
        const NoCancellation untilItIsConnected;

        if (candidate->connect (juce::String (*address), port, static_cast<int> (share)))
            return start (std::move (candidate), host);
    }

    return false;
}

bool TcpConnection::attach (std::unique_ptr<juce::StreamingSocket> newSocket)
{
    disconnect (true);
    const auto name = newSocket->getHostName();
    return start (std::move (newSocket), name);
}

bool TcpConnection::start (std::unique_ptr<juce::StreamingSocket> newSocket, const juce::String& name)
{
    platform::prepareSocket (newSocket->getRawSocketHandle());

    // Held to the end, so that no listener hears of the loss before it hears of the connection.
    const juce::ScopedLock guard (socketLock);
    socket = std::move (newSocket);
    hostName = name;

    if (thread != nullptr && ! thread->start (threadPriority))
    {
        socket = nullptr;
        hostName.clear();
        return false;
    }

    notifyConnected();
    return true;
}

void TcpConnection::disconnect (bool)
{
    if (thread != nullptr)
        thread->askToStop();

    std::shared_ptr<juce::StreamingSocket> old;

    {
        const juce::ScopedLock guard (socketLock);
        old = std::move (socket);
        socket = nullptr;
        hostName.clear();
    }

    // Not close: closing a socket that another thread is about to wait for leaves that thread waiting for ever. A
    // socket that has been shut down wakes it, however late it comes. The handle is closed when old goes out of scope,
    // or later, with the last copy of the pointer.
    if (old != nullptr)
        platform::shutDown (old->getRawSocketHandle());

    // A handler that disconnects runs on the reader itself, which ends when the handler returns.
    if (thread != nullptr && thread->getThreadId() != juce::Thread::getCurrentThreadId())
        if (! thread->join (kReaderStop_ms))
            VELTRA_LOG (ERROR, "VeltraIO: A message handler does not return, the connection stays open until it does");
}

bool TcpConnection::poll()
{
    const auto current = getSocket();

    if (current == nullptr)
        return false;

    const int ready = current->waitUntilReady (true, -1);

    if (ready < 0)
    {
        notifyDisconnected();
        return false;
    }

    if (isPaused() || ready == 0)
        return true;

    if (readerShouldExit())
        return false;

    return read();
}

void TcpConnection::notifyConnected()
{
    const juce::ScopedLock guard (socketLock);

    for (const auto& listener : listeners)
        listener (true);
}

void TcpConnection::notifyDisconnected()
{
    const juce::ScopedLock guard (socketLock);

    for (const auto& listener : listeners)
        listener (false);
}

bool TcpConnection::isPaused() { return false; }

void TcpConnection::onAttached() {}

int TcpConnection::readHeader()
{
    const auto current = getSocket();

    if (current == nullptr)
        return -1;

    std::uint8_t header[kHeaderSize] = {};
    const int got = current->read (header, kHeaderSize, true);

    if (got == kHeaderSize && juce::ByteOrder::littleEndianInt (header) == kHeaderWord)
        return static_cast<int> (juce::ByteOrder::littleEndianInt (header + 4));

    return got;
}

bool TcpConnection::read()
{
    const int size = readHeader();

    if (size < 0 || size > kMaximumMessageSize)
    {
        notifyDisconnected();
        return false;
    }

    if (size == 0)
        return true;

    constexpr int kLargestRead = 65536;
    juce::MemoryBlock block (static_cast<std::size_t> (size), true);
    auto* const bytes = static_cast<char*> (block.getData());

    for (int position = 0; position < size;)
    {
        const auto current = getSocket();
        const int got =
            current != nullptr ? current->read (bytes + position, std::min (size - position, kLargestRead), true) : 0;

        if (got <= 0)
            break;

        position += got;
    }

    onData (block);
    return true;
}

}
