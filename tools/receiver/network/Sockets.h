// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/platform/Network.h"

namespace veltra::receiver {

/** Owns a socket and closes it. */
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor (platform::SocketHandle openSocket) noexcept : handle (openSocket) {}
    Descriptor (Descriptor&& other) noexcept;
    Descriptor& operator= (Descriptor&& other) noexcept;
    ~Descriptor();

    platform::SocketHandle get() const noexcept { return handle; }
    bool isOpen() const noexcept { return handle != platform::kNoSocket; }
    void close() noexcept;

private:
    platform::SocketHandle handle = platform::kNoSocket;
};

/** Ends blocking waits from another thread. Once raised it stays raised, and every wait that watches it returns at
    once. Raising it is safe in a signal handler. */
class StopSignal
{
public:
    StopSignal();

    void raise() noexcept;
    bool isRaised() const noexcept { return raised.load(); }

    /** @returns false when the signal was raised before the time was over */
    bool pause (std::chrono::milliseconds duration) const;

    /** Becomes readable when the signal is raised. */
    platform::SocketHandle handle() const noexcept { return readEnd.get(); }

private:
    Descriptor readEnd, writeEnd;
    std::atomic<bool> raised { false };
};

/** One accepted TCP connection. All waiting ends when the stop signal is raised.

    Threads: one may receive while another sends; the caller serialises senders. close() and reset() require that no
    other thread uses the connection.
*/
class HostSocket
{
public:
    HostSocket (Descriptor socket, const StopSignal& stop);

    /** Waits for bytes.
        @returns how many arrived; 0 when the peer closed, the connection broke or the stop signal was raised */
    std::size_t receive (char* buffer, std::size_t capacity);

    /** Sends all of it, as fast as the peer takes it.
        @returns false when the connection broke or the stop signal was raised */
    bool send (std::string_view bytes);

    /** Closes in an orderly way: the peer reads an end of stream after the bytes sent before. */
    void close() noexcept;

    /** Breaks the connection off: the peer gets a reset, and loses bytes that it has not read. */
    void reset() noexcept;

private:
    bool waitFor (short events) const;

    Descriptor socket;
    const StopSignal& stop;
};

/** A listening TCP socket. */
class Listener
{
public:
    /** @param address  numeric IPv4 address of a local interface
        @param port     0 picks a free one
        @throws         std::system_error; its text contains address and port */
    Listener (const std::string& address, std::uint16_t port);

    std::uint16_t port() const noexcept { return boundPort; }

    /** Waits for a connection.
        @returns nothing when the stop signal was raised */
    std::optional<Descriptor> accept (const StopSignal& stop);

private:
    Descriptor socket;
    std::uint16_t boundPort = 0;
};

}
