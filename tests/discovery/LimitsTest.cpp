// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Bounds that docs/discovery.md promises and that other tests do not meet.
*/

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "discovery/ConnectionManager.h"
#include "discovery/HttpGet.h"
#include "tests/support/ScriptedHttpServer.h"

namespace {

using std::chrono::steady_clock;

/** A loopback port whose queue of connections is full, so that another one gets no answer. */
class FullPort
{
public:
    FullPort()
    {
        sockaddr_in name {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
        socklen_t size = sizeof (name);
        auto* const address = reinterpret_cast<sockaddr*> (&name);
        sockets.push_back (::socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));

        if (::bind (sockets[0], address, size) != 0 || ::listen (sockets[0], 0) != 0
            || ::getsockname (sockets[0], address, &size) != 0)
            ADD_FAILURE() << "no port";

        for (int i = 0; i < 4; ++i)
        {
            sockets.push_back (::socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            static_cast<void> (::connect (sockets.back(), address, size));
        }

        port = ntohs (name.sin_port);
    }

    ~FullPort()
    {
        for (const int socket : sockets)
            ::close (socket);
    }

    FullPort (const FullPort&) = delete;
    FullPort& operator= (const FullPort&) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string (port); }

private:
    std::vector<int> sockets;
    int port = 0;
};

template <typename Action>
double seconds (Action&& action)
{
    const auto start = steady_clock::now();
    action();
    return std::chrono::duration<double> (steady_clock::now() - start).count();
}

}

TEST (Limits, ConnectingEndsAfterTwoSecondsToAReceiverAndAfterOneToAServer)
{
    const FullPort port;
    veltraio::ConnectionManager manager (0);
    const auto receiver = seconds ([&] { EXPECT_EQ (nullptr, manager.Connect ("TCP:" + port.address())); });
    EXPECT_GE (receiver, 1.9);
    EXPECT_LT (receiver, 6.0);

    const auto server =
        seconds ([&] { EXPECT_FALSE (upnp::httpGet ("http://" + port.address() + "/", [] { return false; })); });
    EXPECT_GE (server, 0.9);
    EXPECT_LT (server, 2.5) << "less than the limit of the whole fetch";
}

TEST (Limits, AFetchEndsAfterThreeSecondsWithWhatHasArrived)
{
    ScriptedHttpServer server ([] (auto& exchange) {
        exchange.send ("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<root>");
        exchange.wait (60000);
    });
    const auto time = seconds ([&] {
        const auto reply = upnp::httpGet (server.url ("/"), [] { return false; });
        ASSERT_TRUE (reply);
        EXPECT_EQ ("<root>", reply->body);
    });
    EXPECT_GE (time, 2.9);
    EXPECT_LT (time, 6.0);
}
