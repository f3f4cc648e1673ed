// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/ScriptedHttpServer.h"

using veltra::receiver::Descriptor;

ScriptedHttpServer::ScriptedHttpServer (Script scriptToRun, const std::string& addressToBind)
    : script (std::move (scriptToRun)),
      address (addressToBind),
      listener (address, 0),
      acceptor ([this] { accept(); })
{
}

ScriptedHttpServer::~ScriptedHttpServer()
{
    stop.raise();
    acceptor.join();
}

std::string ScriptedHttpServer::url (const std::string& path) const
{
    return "http://" + address + ":" + std::to_string (port()) + path;
}

std::vector<std::string> ScriptedHttpServer::requests() const
{
    const std::lock_guard guard (mutex);
    return received;
}

std::string ScriptedHttpServer::reply (int status, std::string_view body, std::string_view headers)
{
    return "HTTP/1.1 " + std::to_string (status) + " Scripted\r\nContent-Length: " + std::to_string (body.size())
           + "\r\n" + std::string (headers) + "\r\n" + std::string (body);
}

void ScriptedHttpServer::accept()
{
    while (auto socket = listener.accept (stop))
    {
        std::erase_if (connections, [] (const Connection& connection) { return connection.done->load(); });

        const auto done = std::make_shared<std::atomic<bool>> (false);
        connections.push_back ({ done, std::jthread ([this, done, client = std::move (*socket)]() mutable {
                                     serve (std::move (client));
                                     done->store (true);
                                 }) });
    }

    connections.clear();
}

void ScriptedHttpServer::serve (Descriptor socket)
{
    veltra::receiver::HostSocket client (std::move (socket), stop);
    std::string request;
    char bytes[4096];

    for (std::size_t count = 1; request.find ("\r\n\r\n") == request.npos && count > 0;)
    {
        count = client.receive (bytes, sizeof (bytes));
        request.append (bytes, count);
    }

    const auto pathStart = request.find (' ') + 1;

    {
        const std::lock_guard guard (mutex);
        received.push_back (request);
    }

    if (Exchange exchange (request.substr (pathStart, request.find (' ', pathStart) - pathStart), client, stop);
        ! request.empty())
        script (exchange);
}
