// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/TcpDeviceConnection.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <utility>

#include "common/Contain.h"
#include "common/Log.h"
#include "common/Text.h"
#include "protocol/PingHandler.h"
#include "protocol/SocketPlatform.h"

namespace veltraio {

namespace {

constexpr int kReaderPriority = 5;
constexpr int kLargestRead = 32768;

/** What the parser gets at once: the pause after which it drops an incomplete envelope ends with a piece, and a failure
    loses no more than one. */
constexpr std::size_t kPieceSize = 1024;

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

    for (std::span rest (bytes.data(), static_cast<std::size_t> (got)); ! rest.empty() && ! readerShouldExit();)
    {
        const auto piece = rest.first (std::min (rest.size(), kPieceSize));
        rest = rest.subspan (piece.size());
        veltra::contain ("A received message", [&] { feed (piece.data(), static_cast<std::uint32_t> (piece.size())); });
    }

    return true;
}

void TcpDeviceConnection::onEnvelope (const juce::MemoryBlock& block) { onData (block); }

void TcpDeviceConnection::enablePing (Dispatcher& dispatcher, std::function<void()> callback)
{
    if (pingHandler == nullptr)
        pingHandler = std::make_unique<PingHandler> (dispatcher);

    pingHandler->addCallback (std::move (callback));
}

}
