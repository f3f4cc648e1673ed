// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/FakeDevice.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in socketAddress (const std::string& address, int port)
{
    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_port = htons (static_cast<std::uint16_t> (port));
    ::inet_pton (AF_INET, address.c_str(), &name.sin_addr);
    return name;
}

ScriptedHttpServer::Script scriptOf (const FakeDevice::Options& options)
{
    if (options.script)
        return options.script;

    return [text = options.description] (auto& exchange) { exchange.send (ScriptedHttpServer::reply (200, text)); };
}

}

FakeDevice::FakeDevice (Options optionsToUse)
    : options (std::move (optionsToUse)),
      http (scriptOf (options), options.address)
{
    const int yes = 1, no = 0;
    const auto name = socketAddress ("239.255.255.250", 1900);
    ip_mreq membership {};
    membership.imr_multiaddr = name.sin_addr;
    membership.imr_interface = socketAddress (options.address, 0).sin_addr;

    socket = ::socket (AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ::setsockopt (socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof (yes));
    ::setsockopt (socket, IPPROTO_IP, IP_MULTICAST_ALL, &no, sizeof (no)); // only what comes in by this interface

    if (::bind (socket, reinterpret_cast<const sockaddr*> (&name), sizeof (name)) != 0
        || ::setsockopt (socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof (membership)) != 0)
        throw std::runtime_error ("the fake device cannot listen on " + options.address);

    thread = std::jthread ([this] (std::stop_token stop) { run (std::move (stop)); });
}

FakeDevice::~FakeDevice()
{
    thread.request_stop();
    thread.join();
    ::close (socket);
}

std::string FakeDevice::answer (const std::string& usn, const std::string& location)
{
    return "HTTP/1.1 200 OK\r\nST: upnp:rootdevice\r\nUSN: " + usn + "\r\nLOCATION: " + location + "\r\n\r\n";
}

std::string FakeDevice::ours (const std::string& friendlyName, int port)
{
    return "<root xmlns:v='urn:schemas-veltra-lab:veltraio-1-0'><device><friendlyName>" + friendlyName
           + "</friendlyName><v:x_port>" + std::to_string (port) + "</v:x_port></device></root>";
}

std::vector<std::string> FakeDevice::search (const std::string& from, const std::string& text, int copies,
                                             std::size_t expected, std::chrono::seconds patience,
                                             const std::function<void()>& onAnswer)
{
    const auto name = socketAddress (from, 0), everybody = socketAddress ("239.255.255.250", 1900);
    const int socket = ::socket (AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const timeval silence { patience.count(), 0 };
    ::setsockopt (socket, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof (silence));
    ::bind (socket, reinterpret_cast<const sockaddr*> (&name), sizeof (name));

    for (int i = 0; i < copies; ++i)
        ::sendto (socket, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*> (&everybody),
                  sizeof (everybody));

    std::vector<std::string> answers;
    char bytes[4096];

    for (ssize_t size; answers.size() < expected && (size = ::recv (socket, bytes, sizeof (bytes), 0)) > 0; onAnswer())
        answers.emplace_back (bytes, static_cast<std::size_t> (size));

    ::close (socket);
    return answers;
}

std::vector<FakeDevice::Request> FakeDevice::searches() const
{
    const std::lock_guard guard (mutex);
    return received;
}

bool FakeDevice::waitForSearches (std::size_t count) const
{
    return eventually ([&] { return searches().size() >= count; });
}

void FakeDevice::sendTo (const std::string& address, int port, const std::string& bytes) const
{
    const auto name = socketAddress (address, port);
    ::sendto (socket, bytes.data(), bytes.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*> (&name),
              sizeof (name));
}

void FakeDevice::run (std::stop_token stop)
{
    while (! stop.stop_requested())
    {
        pollfd entry { socket, POLLIN, 0 };

        if (::poll (&entry, 1, 50) <= 0)
            continue;

        char bytes[4096], sender[INET_ADDRSTRLEN] {};
        sockaddr_in name {};
        socklen_t size = sizeof (name);
        const auto count = ::recvfrom (socket, bytes, sizeof (bytes), 0, reinterpret_cast<sockaddr*> (&name), &size);

        if (count <= 0)
            continue;

        ::inet_ntop (AF_INET, &name.sin_addr, sender, sizeof (sender));
        const Request request {
            std::chrono::steady_clock::now(), { bytes, static_cast<std::size_t> (count) }, sender, ntohs (name.sin_port)
        };
        std::size_t number = 0;

        {
            const std::lock_guard guard (mutex);
            received.push_back (request);
            number = received.size();
        }

        if (number <= static_cast<std::size_t> (options.ignoredSearches))
            continue;

        for (const auto& text :
             options.answers ? options.answers (*this, request) : std::vector { answer (options.usn, location()) })
            sendTo (request.sender, request.senderPort, text);
    }
}
