#include "tests/discovery/ScriptedHttpServer.h"

#include <algorithm>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/** Polls in slices so that a stop is seen. @returns the events, 0 after the time or at the stop */
short waitFor (int socket, short events, int milliseconds, const std::stop_token& stop)
{
    for (; milliseconds > 0 && ! stop.stop_requested(); milliseconds -= 20)
    {
        pollfd entry { socket, events, 0 };

        if (::poll (&entry, 1, std::min (milliseconds, 20)) > 0)
            return entry.revents;
    }

    return 0;
}

}

bool ScriptedHttpServer::Exchange::send (std::string_view bytes)
{
    while (! bytes.empty())
    {
        if (waitFor (socket, POLLOUT, 10000, stopped) != POLLOUT)
            return false;

        const auto sent = ::send (socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);

        if (sent < 0)
            return false;

        bytes.remove_prefix (static_cast<std::size_t> (sent));
    }

    return true;
}

bool ScriptedHttpServer::Exchange::wait (int milliseconds)
{
    return waitFor (socket, POLLIN | POLLRDHUP, milliseconds, stopped) == 0 && ! stopped.stop_requested();
}

ScriptedHttpServer::ScriptedHttpServer (Script scriptToRun, const std::string& addressToBind)
    : script (std::move (scriptToRun)), address (addressToBind)
{
    sockaddr_in name {};
    name.sin_family = AF_INET;
    ::inet_pton (AF_INET, address.c_str(), &name.sin_addr);
    socklen_t size = sizeof (name);
    listener = ::socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);

    if (::bind (listener, reinterpret_cast<sockaddr*> (&name), size) != 0 || ::listen (listener, 64) != 0
          || ::getsockname (listener, reinterpret_cast<sockaddr*> (&name), &size) != 0)
        throw std::runtime_error ("the test's HTTP server cannot listen on " + address);

    boundPort = ntohs (name.sin_port);
    acceptor = std::jthread ([this] (std::stop_token stop) { accept (std::move (stop)); });
}

ScriptedHttpServer::~ScriptedHttpServer()
{
    acceptor.request_stop();
    acceptor.join();

    for (auto& connection : connections)
        connection.thread.request_stop();

    connections.clear();
    ::close (listener);
}

std::string ScriptedHttpServer::url (const std::string& path) const
{
    return "http://" + address + ":" + std::to_string (boundPort) + path;
}

std::vector<std::string> ScriptedHttpServer::requests() const
{
    const std::lock_guard guard (mutex);
    return received;
}

std::string ScriptedHttpServer::reply (int status, std::string_view body, std::string_view headers)
{
    return "HTTP/1.1 " + std::to_string (status) + " Scripted\r\nContent-Length: " + std::to_string (body.size()) + "\r\n"
         + std::string (headers) + "\r\n" + std::string (body);
}

void ScriptedHttpServer::accept (std::stop_token stop)
{
    while (! stop.stop_requested())
    {
        std::erase_if (connections, [] (const Connection& connection) { return connection.done->load(); });

        if (waitFor (listener, POLLIN, 100, stop) == 0)
            continue;

        if (const int socket = ::accept4 (listener, nullptr, nullptr, SOCK_CLOEXEC); socket >= 0)
        {
            const auto done = std::make_shared<std::atomic<bool>> (false);
            connections.push_back ({ done, std::jthread ([this, socket, done] (std::stop_token own)
            {
                serve (socket, std::move (own));
                done->store (true);
            }) });
        }
    }
}

void ScriptedHttpServer::serve (int connection, std::stop_token stop)
{
    std::string request;

    while (request.find ("\r\n\r\n") == request.npos && waitFor (connection, POLLIN, 10000, stop) != 0)
    {
        char bytes[4096];
        const auto count = ::recv (connection, bytes, sizeof (bytes), 0);

        if (count <= 0)
            break;

        request.append (bytes, static_cast<std::size_t> (count));
    }

    const auto pathStart = request.find (' ') + 1;

    {
        const std::lock_guard guard (mutex);
        received.push_back (request);
    }

    if (Exchange exchange (request.substr (pathStart, request.find (' ', pathStart) - pathStart), connection, stop);
        ! request.empty())
        script (exchange);

    ::close (connection);
}
