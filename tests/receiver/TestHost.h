// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <google/protobuf/message_lite.h>

#include "tools/receiver/network/Sockets.h"

namespace veltra::receiver {

/** The host's side of a connection, as plain as it gets, with bytes of its own making. */
class TestHost
{
public:
    explicit TestHost (std::uint16_t port);

    void sendBytes (std::string_view bytes);
    void send (const google::protobuf::MessageLite& message);

    struct Envelope
    {
        std::uint32_t messageId = 0;
        bool checksumFits = false;
        std::string body;
    };

    /** The next envelope; nothing when the connection ends or the time is over. Bytes before a marker are passed
        over and counted. */
    std::optional<Envelope> receive (std::chrono::milliseconds timeout = std::chrono::seconds (10));

    /** Waits for the end of the connection.
        @returns "closed", "reset", "bytes" when there is something to read, or "open" when the time is over */
    std::string waitForEnd (std::chrono::milliseconds timeout = std::chrono::seconds (10));

    /** The next message when it is a T; nothing otherwise. */
    template <typename T>
    std::optional<T> receiveA (std::chrono::milliseconds timeout = std::chrono::seconds (10))
    {
        const auto envelope = receive (timeout);
        T message;

        if (! envelope || ! envelope->checksumFits || envelope->messageId != idOf (message)
            || ! message.ParsePartialFromString (envelope->body))
            return {};

        return message;
    }

    /** Sends a message and gives the refusal's words; "ok" when it was acknowledged, "nothing" without an answer. */
    std::string command (const google::protobuf::MessageLite& message);

    static std::uint32_t idOf (const google::protobuf::MessageLite& message);
    static std::string envelopeOf (const google::protobuf::MessageLite& message);

    std::size_t noiseBytes = 0;

private:
    Descriptor socket;
    std::string pending;
};

}
