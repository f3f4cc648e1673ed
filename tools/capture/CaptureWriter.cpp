// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/capture/CaptureWriter.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace veltra::capture {

namespace {

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A, kInterface = 1, kPacket = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t kRawIp = 101, kNanoseconds = 9;
constexpr std::uint8_t kFin = 0x01, kSyn = 0x02, kPush = 0x08, kAck = 0x10;
constexpr std::size_t kLongestPayload = 32000; // an IPv4 packet has 65535 bytes at most

/** Words in the writer's byte order, which the section header tells. */
template <class Word>
std::string native (Word word)
{
    std::string bytes (sizeof (word), '\0');
    std::memcpy (bytes.data(), &word, sizeof (word));
    return bytes;
}

std::string network16 (std::uint32_t word) { return { static_cast<char> (word >> 8), static_cast<char> (word) }; }

std::string network32 (std::uint32_t word) { return network16 (word >> 16) + network16 (word & 0xFFFF); }

std::string padded (std::string bytes)
{
    bytes.resize ((bytes.size() + 3) / 4 * 4);
    return bytes;
}

std::string option (std::uint16_t code, const std::string& value)
{
    return native (code) + native (static_cast<std::uint16_t> (value.size())) + padded (value);
}

std::string block (std::uint32_t type, const std::string& body)
{
    const auto length = native (static_cast<std::uint32_t> (12 + body.size()));
    return native (type) + length + body + length;
}

/** RFC 1071. */
std::uint16_t internetChecksum (std::string bytes)
{
    bytes.resize ((bytes.size() + 1) / 2 * 2);
    std::uint32_t sum = 0;

    for (std::size_t i = 0; i < bytes.size(); i += 2)
        sum += static_cast<std::uint32_t> (static_cast<std::uint8_t> (bytes[i]) << 8
                                           | static_cast<std::uint8_t> (bytes[i + 1]));

    while (sum >> 16 != 0)
        sum = (sum & 0xFFFF) + (sum >> 16);

    return static_cast<std::uint16_t> (~sum);
}

}

CaptureWriter::CaptureWriter (std::ostream& target, std::uint64_t limit) : stream (target), limit_bytes (limit)
{
    write (block (kSectionHeader, native (kByteOrderMagic) + native (std::uint16_t { 1 }) + native (std::uint16_t { 0 })
                                      + native (std::int64_t { -1 })));
    write (block (kInterface, native (kRawIp) + native (std::uint16_t { 0 }) + native (std::uint32_t { 0 })
                                  + option (9, std::string (1, static_cast<char> (kNanoseconds))) + option (0, {})));
}

void CaptureWriter::write (const std::string& bytes)
{
    full = full || written + bytes.size() > limit_bytes;

    if (full)
        return;

    written += bytes.size();
    stream.write (bytes.data(), static_cast<std::streamsize> (bytes.size()));
}

CaptureWriter::Conversation::Conversation (CaptureWriter& theWriter, Time time)
    : writer (theWriter),
      hostPort (writer.lastPort = static_cast<std::uint16_t> (std::max<int> (writer.lastPort + 1, 49152)))
{
    packet (Side::host, {}, kSyn, time);
    packet (Side::receiver, {}, kSyn | kAck, time);
    packet (Side::host, {}, kAck, time);
}

void CaptureWriter::Conversation::add (Side sender, std::string_view bytes, Time time, const std::string& comment)
{
    for (; ! bytes.empty(); bytes.remove_prefix (std::min (bytes.size(), kLongestPayload)))
        packet (sender, bytes.substr (0, kLongestPayload), kPush | kAck, time, comment);
}

void CaptureWriter::Conversation::close (Side first, Time time)
{
    const auto second = first == Side::host ? Side::receiver : Side::host;
    packet (first, {}, kFin | kAck, time);
    packet (second, {}, kFin | kAck, time);
    packet (first, {}, kAck, time);
}

void CaptureWriter::Conversation::packet (Side sender, std::string_view payload, std::uint8_t flags, Time time,
                                          const std::string& comment)
{
    const bool fromHost = sender == Side::host;
    const auto hostAddress = network32 (0xC0000201), receiverAddress = network32 (0xC0000202);
    const auto addresses = fromHost ? hostAddress + receiverAddress : receiverAddress + hostAddress;
    const auto ports =
        fromHost ? network16 (hostPort) + network16 (kReceiverPort) : network16 (kReceiverPort) + network16 (hostPort);
    auto& sequence = next[fromHost ? 0 : 1];
    const auto acknowledged = (flags & kAck) != 0 ? next[fromHost ? 1 : 0] : 0;

    auto tcp = ports + network32 (sequence) + network32 (acknowledged) + std::string { 0x50, static_cast<char> (flags) }
               + network16 (65535) + network16 (0) + network16 (0) + std::string (payload);
    tcp.replace (16, 2,
                 network16 (internetChecksum (addresses + network16 (6)
                                              + network16 (static_cast<std::uint32_t> (tcp.size())) + tcp)));
    auto ip = std::string { 0x45, 0 } + network16 (static_cast<std::uint32_t> (20 + tcp.size()))
              + network16 (++writer.lastId) + network16 (0x4000) + std::string { 64, 6 } + network16 (0) + addresses;
    ip.replace (10, 2, network16 (internetChecksum (ip)));
    sequence += static_cast<std::uint32_t> (payload.size()) + ((flags & (kSyn | kFin)) != 0 ? 1 : 0);

    const auto ticks = static_cast<std::uint64_t> (
        std::chrono::duration_cast<std::chrono::nanoseconds> (time.time_since_epoch()).count());
    const auto size = native (static_cast<std::uint32_t> (ip.size() + tcp.size()));
    writer.write (block (kPacket, native (std::uint32_t { 0 }) + native (static_cast<std::uint32_t> (ticks >> 32))
                                      + native (static_cast<std::uint32_t> (ticks)) + size + size + padded (ip + tcp)
                                      + (comment.empty() ? std::string() : option (1, comment) + option (0, {}))));
}

}
