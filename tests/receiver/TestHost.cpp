// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/receiver/TestHost.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

#include "protocol/veltraio.pb.h"
#include "tests/support/Envelope.h"

namespace veltra::receiver {

namespace {

std::uint32_t wordAt (const std::string& bytes, std::size_t place)
{
    std::uint32_t value = 0;

    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char> (bytes[place + i]);

    return value;
}

const std::string marker ("\x21\x01\xFF", 3);

}

TestHost::TestHost (std::uint16_t port) : socket (::socket (AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_port = htons (port);
    name.sin_addr.s_addr = htonl (INADDR_LOOPBACK);

    if (::connect (socket.get(), reinterpret_cast<sockaddr*> (&name), sizeof (name)) != 0)
        throw std::runtime_error ("cannot connect");

    const int on = 1;
    ::setsockopt (socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof (on));
}

void TestHost::sendBytes (std::string_view bytes)
{
    while (! bytes.empty())
    {
        const auto count = ::send (socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);

        if (count <= 0)
            return;

        bytes.remove_prefix (static_cast<std::size_t> (count));
    }
}

std::uint32_t TestHost::idOf (const google::protobuf::MessageLite& message)
{
    return test::hashOf (message.GetTypeName());
}

std::string TestHost::envelopeOf (const google::protobuf::MessageLite& message)
{
    return test::envelopeOf (message.GetTypeName(), message.SerializePartialAsString());
}

void TestHost::send (const google::protobuf::MessageLite& message) { sendBytes (envelopeOf (message)); }

std::optional<TestHost::Envelope> TestHost::receive (std::chrono::milliseconds timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;

    for (;;)
    {
        const auto start = std::min (pending.find (marker), pending.size());

        if (start < pending.size() && pending.size() >= start + 15)
        {
            const auto length = wordAt (pending, start + 3);

            if (pending.size() >= start + 15 + length)
            {
                Envelope envelope;
                envelope.messageId = wordAt (pending, start + 7);
                envelope.body = pending.substr (start + 15, length);
                envelope.checksumFits = test::hashOf (envelope.body) == wordAt (pending, start + 11);
                noiseBytes += start;
                pending.erase (0, start + 15 + length);
                return envelope;
            }
        }

        const auto left = std::chrono::ceil<std::chrono::milliseconds> (end - std::chrono::steady_clock::now());
        pollfd waiting { socket.get(), POLLIN, 0 };

        if (left.count() <= 0 || ::poll (&waiting, 1, static_cast<int> (left.count())) <= 0)
            return {};

        char buffer[65536];
        const auto count = ::recv (socket.get(), buffer, sizeof (buffer), 0);

        if (count <= 0)
            return {};

        pending.append (buffer, static_cast<std::size_t> (count));
    }
}

std::string TestHost::waitForEnd (std::chrono::milliseconds timeout)
{
    pollfd waiting { socket.get(), POLLIN, 0 };

    if (::poll (&waiting, 1, static_cast<int> (timeout.count())) <= 0)
        return "open";

    char byte = 0;
    const auto count = ::recv (socket.get(), &byte, 1, 0);
    return count > 0 ? "bytes" : count == 0 ? "closed" : errno == ECONNRESET ? "reset" : "broken";
}

std::string TestHost::command (const google::protobuf::MessageLite& message)
{
    send (message);
    const auto answer = receiveA<veltraio::Acknowledge>();
    return ! answer ? "nothing" : answer->ok() ? "ok" : answer->errormessage();
}

}
