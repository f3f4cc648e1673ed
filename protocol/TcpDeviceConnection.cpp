// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/TcpDeviceConnection.h"

#include <array>
#include <cstdint>
#include <utility>

#include "common/Log.h"
#include "common/Text.h"
#include "protocol/PingHandler.h"
#include "protocol/SocketPlatform.h"

namespace veltraio {

namespace {

constexpr int kReaderPriority = 5;
constexpr int kLargestRead = 1024;

}

TcpDeviceConnection::TcpDeviceConnection (const juce::String& hostAndPort)
    : TcpConnection (kReaderPriority),
      address (hostAndPort)
{
}

TcpDeviceConnection::~TcpDeviceConnection()
{
    pingHandler = nullptr;
    disconnect (false); // here already: the reader uses this class's part of the object
}

juce::String TcpDeviceConnection::getName() { return "TCP:" + address; }

int TcpDeviceConnection::write (const void* data, int size)
{
    return TcpConnection::write (data, size, veltra::ipc::platform::Blocking::no);
}

bool TcpDeviceConnection::poll()
{
    const auto current = getSocket();

    if (current == nullptr)
        return false;

    // Waiting and reading in one system call instead of four: this is on the road of every exchange.
    std::array<std::uint8_t, kLargestRead> bytes;
    const int got = veltra::ipc::platform::receiveBytes (current->getRawSocketHandle(), bytes.data(), kLargestRead);

    if (readerShouldExit())
        return false;

    if (got <= 0)
    {
        VELTRA_LOG (DEBUG, veltra::logText (getName().toStdString())
                               << (got == 0 ? " closed the connection" : " reset the connection"));

        if (got < 0)
            notifyDisconnected();

        return false;
    }

    return feed (bytes.data(), static_cast<std::uint32_t> (got));
}

void TcpDeviceConnection::onEnvelope (const juce::MemoryBlock& block) { onData (block); }

void TcpDeviceConnection::enablePing (Dispatcher& dispatcher, std::function<void()> callback)
{
    if (pingHandler == nullptr)
        pingHandler = std::make_unique<PingHandler> (dispatcher);

    pingHandler->addCallback (std::move (callback));
}

}
