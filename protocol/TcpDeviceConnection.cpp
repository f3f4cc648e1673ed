#include "protocol/TcpDeviceConnection.h"

#include <array>
#include <cstdint>
#include <utility>

#include "protocol/PingHandler.h"

namespace veltraio {

namespace {

constexpr int readerPriority = 5;
constexpr int largestRead = 1024;
constexpr int pauseAtEndOfStream_ms = 10;

}

TcpDeviceConnection::TcpDeviceConnection (const juce::String& hostAndPort, int patience_ms)
    : TcpConnection (readerPriority, patience_ms),
      address (hostAndPort)
{
}

TcpDeviceConnection::~TcpDeviceConnection()
{
    pingHandler = nullptr;
    disconnect (false); // here already: the reader uses this class's part of the object
}

juce::String TcpDeviceConnection::getName()
{
    return "TCP:" + address;
}

bool TcpDeviceConnection::read()
{
    const auto current = getSocket();

    if (current == nullptr)
        return false;

    std::array<std::uint8_t, largestRead> bytes;
    const int got = current->read (bytes.data(), largestRead, false);

    if (got < 0)
        return false;

    // Nothing to read on a socket that is ready for it: the peer has closed its side, and stays ready for ever.
    if (got == 0)
        pauseReader (pauseAtEndOfStream_ms);

    return feed (bytes.data(), static_cast<std::uint32_t> (got));
}

void TcpDeviceConnection::onEnvelope (const juce::MemoryBlock& block)
{
    onData (block);
}

void TcpDeviceConnection::enablePing (Dispatcher& dispatcher, std::function<void()> callback)
{
    if (pingHandler == nullptr)
        pingHandler = std::make_unique<PingHandler> (dispatcher);

    pingHandler->addCallback (std::move (callback));
}

}
