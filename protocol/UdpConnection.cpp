// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/UdpConnection.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "common/Contain.h"

namespace veltra::ipc {

namespace {

constexpr std::uint32_t kCheckWord = 0x8FB67C4A;
constexpr int kHeaderSize = 4 + 4 + 4 + 4;
constexpr int kLargestPayload = 65507; // of a datagram over IPv4
constexpr int kWait_ms = 100;          // a socket that is shut down under a waiting thread does not always wake it

/** The table of the reflected CRC-32, each entry with its bytes swapped. */
constexpr auto kCrcTable = [] {
    std::array<std::uint32_t, 256> table {};

    for (std::uint32_t i = 0; i < 256; ++i)
    {
        std::uint32_t entry = i;

        for (int bit = 0; bit < 8; ++bit)
            entry = (entry >> 1) ^ ((entry & 1) != 0 ? 0xEDB88320u : 0u);

        table[i] = entry << 24 | (entry & 0xFF00) << 8 | (entry >> 8 & 0xFF00) | entry >> 24;
    }

    return table;
}();

/** Begins with the polynomial's number, takes whole little-endian words first and then the bytes that are left. It is
    not a standard CRC; the framing is defined with it. */
std::uint32_t computeCrc (const std::uint8_t* data, std::size_t size)
{
    std::uint32_t crc = 0x04C11DB7;
    const auto shiftOut = [&crc] { crc = (crc << 8) ^ kCrcTable[crc >> 24]; };

    for (; size >= 4; data += 4, size -= 4)
    {
        crc ^= juce::ByteOrder::littleEndianInt (data);

        for (int i = 0; i < 4; ++i)
            shiftOut();
    }

    for (; size > 0; ++data, --size)
    {
        crc ^= static_cast<std::uint32_t> (*data) << 24;
        shiftOut();
    }

    return crc;
}

}

UdpConnection::UdpConnection (int port, int threadPriority, const juce::String& bindAddress)
    : juce::Thread ("UdpServer"),
      priority (threadPriority)
{
    if (port >= 0 && port <= 65535)
        socket.bindToPort (port, bindAddress);
}

UdpConnection::~UdpConnection() { UdpConnection::stopReading(); }

void UdpConnection::startReading()
{
    if (isConnected() && priority >= 0)
        startThread (threadPriority (priority));
}

void UdpConnection::stopReading()
{
    signalThreadShouldExit();
    notify();
    waitForThreadToExit (-1);
    threadEnd.waitUntilGone();
    socket.shutdown();
}

bool UdpConnection::isConnected() { return socket.getBoundPort() >= 0; }

juce::String UdpConnection::getName() { return {}; }

int UdpConnection::write (const void*, int) { throw std::logic_error ("The method or operation is not implemented."); }

int UdpConnection::getHeaderSize() { return kHeaderSize; }

bool UdpConnection::send (juce::MemoryOutputStream& stream, const Destination& destination)
{
    const auto size = static_cast<int> (stream.getDataSize());

    if (size < kHeaderSize)
        return false;

    const auto* const body = static_cast<const std::uint8_t*> (stream.getData()) + kHeaderSize;
    const auto bodyCrc = computeCrc (body, static_cast<std::size_t> (size - kHeaderSize));
    const auto word = static_cast<std::uint32_t> (juce::Random::getSystemRandom().nextInt());

    stream.setPosition (0);
    stream.writeInt (static_cast<int> (word));
    stream.writeInt (static_cast<int> (word ^ kCheckWord));
    stream.writeInt (size - kHeaderSize);
    stream.writeInt (static_cast<int> (bodyCrc));

    const auto* const bytes = static_cast<const char*> (stream.getData());

    for (int position = 0; position < size;)
    {
        const int piece = std::min (size - position, kLargestPayload);

        if (socket.write (destination.host, destination.port, bytes + position, piece) != piece)
            return false;

        position += piece;
    }

    return true;
}

void UdpConnection::run()
{
    threadEnd.started();

    while (! threadShouldExit())
    {
        const int ready = socket.waitUntilReady (true, kWait_ms);

        if (ready < 0)
            break;

        if (ready > 0)
            contain ("A received datagram", [this] { handleRead(); });
    }
}

bool UdpConnection::handleRead()
{
    received = 0;
    remaining = 0;
    crc = 0;

    std::array<char, kMaximumDatagramSize> datagram;
    juce::String senderIp;
    int senderPort = 0;

    while (! threadShouldExit())
    {
        const int got = socket.read (datagram.data(), kMaximumDatagramSize, false, senderIp, senderPort);

        if (got <= 0)
            return false;

        if (handleDatagram (datagram.data(), got, senderIp, senderPort))
            return true;
    }

    return false;
}

bool UdpConnection::handleDatagram (const void* data, int size, const juce::String&, int)
{
    auto* bytes = static_cast<const std::uint8_t*> (data);
    auto payload = static_cast<std::uint32_t> (std::max (size, 0));
    const auto word = [bytes] (int index) { return juce::ByteOrder::littleEndianInt (bytes + 4 * index); };

    if (payload >= kHeaderSize && word (1) == (word (0) ^ kCheckWord) && word (2) <= kMaximumMessageSize)
    {
        received = 0;
        remaining = word (2);
        crc = word (3);
        message.setSize (remaining);
        bytes += kHeaderSize;
        payload -= kHeaderSize;
    }
    else if (remaining == 0)
    {
        return false; // belongs to no message
    }

    if (payload > remaining)
    {
        remaining = 0;
        return false;
    }

    message.copyFrom (bytes, static_cast<int> (received), payload);
    received += payload;
    remaining -= payload;

    if (remaining > 0 || computeCrc (static_cast<const std::uint8_t*> (message.getData()), message.getSize()) != crc)
        return false;

    onData (message);
    return true;
}

}
