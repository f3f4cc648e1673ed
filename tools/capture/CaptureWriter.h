// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace veltra::capture {

enum class Side
{
    host,
    receiver
};

/** Writes TCP conversations as a pcapng file that Wireshark opens (draft-ietf-opsawg-pcapng): raw IPv4 packets with made-up
    addresses, 192.0.2.1 for hosts and 192.0.2.2 for the receiver. What is written at any time is a whole file. One thread at a
    time. */
class CaptureWriter
{
public:
    using Time = std::chrono::system_clock::time_point;

    static constexpr std::uint16_t kReceiverPort = 47600; ///< nobody else's in Wireshark

    /** @param limit_bytes  of the file; what does not fit is left out from then on */
    CaptureWriter (std::ostream& stream, std::uint64_t limit_bytes);

    /** A connection, with the packets that open it. */
    class Conversation
    {
    public:
        Conversation (CaptureWriter& writer, Time time);

        /** Bytes that one side sent.
            @param comment  shown at the packet; may be empty */
        void add (Side sender, std::string_view bytes, Time time, const std::string& comment = {});
        void close (Side first, Time time);

    private:
        void packet (Side sender, std::string_view payload, std::uint8_t flags, Time time,
                     const std::string& comment = {});

        CaptureWriter& writer;
        const std::uint16_t hostPort;
        std::uint32_t next[2] { 1000, 1000 }; ///< sequence numbers of host and receiver
    };

    bool isFull() const noexcept { return full; }

private:
    void write (const std::string& block);

    std::ostream& stream;
    const std::uint64_t limit_bytes;
    std::uint64_t written = 0;
    std::uint16_t lastPort = 49151, lastId = 0;
    bool full = false;
};

}
