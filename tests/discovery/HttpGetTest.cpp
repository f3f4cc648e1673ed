// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/HttpGet.h"

#include <fcntl.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/support/ScriptedHttpServer.h"

namespace {

using namespace std::chrono_literals;
using Exchange = ScriptedHttpServer::Exchange;
using std::chrono::steady_clock;

bool never() { return false; }

upnp::HttpLimits withTimes (std::chrono::milliseconds header, std::chrono::milliseconds total)
{
    upnp::HttpLimits limits;
    limits.headerTime = header;
    limits.totalTime = total;
    return limits;
}

/** Of a fetch that must end long before its longer limit. */
constexpr auto patience = 8s;

/** Replies to /0 ... with a redirect to the next number, and with a document at the last. */
ScriptedHttpServer::Script redirects (int count)
{
    return [count] (Exchange& exchange) {
        const int number = std::stoi (exchange.path.substr (1));
        exchange.send (number < count ? ScriptedHttpServer::reply (302, "moved",
                                                                   "LOCATION: " + std::to_string (number + 1) + "\r\n")
                                      : ScriptedHttpServer::reply (200, "there"));
    };
}

}

TEST (HttpGet, FetchesADocumentWithoutAProxyExtraHeadersOrInheritableSockets)
{
    ::setenv ("http_proxy", "http://127.0.0.1:1/", 1);
    int sockets = 0, inheritable = 0;
    std::unique_ptr<ScriptedHttpServer> started;
    started = std::make_unique<ScriptedHttpServer> ([&] (Exchange& exchange) {
        for (int handle = 3; handle < 256; ++handle)
        {
            sockaddr_in peer {};
            socklen_t size = sizeof (peer);

            if (::getpeername (handle, reinterpret_cast<sockaddr*> (&peer), &size) != 0
                || ntohs (peer.sin_port) != started->port())
                continue;

            ++sockets;
            inheritable += (::fcntl (handle, F_GETFD) & FD_CLOEXEC) == 0;
        }

        exchange.send (ScriptedHttpServer::reply (200, "document"));
    });
    auto& server = *started;

    const auto reply = upnp::httpGet (server.url ("/a/b.xml?c=d"), never);
    ::unsetenv ("http_proxy");

    ASSERT_TRUE (reply);
    EXPECT_EQ (reply->status, 200);
    EXPECT_EQ (reply->body, "document");
    EXPECT_FALSE (reply->bodyTooLong);
    EXPECT_EQ (1, sockets);
    EXPECT_EQ (0, inheritable);
    EXPECT_EQ (server.requests().at (0), "GET /a/b.xml?c=d HTTP/1.1\r\nHost: 127.0.0.1:"
                                             + std::to_string (server.port()) + "\r\nAccept: */*\r\n\r\n");
}

TEST (HttpGet, FollowsFiveRedirectsAndReportsTheStatusOfTheSixth)
{
    ScriptedHttpServer five (redirects (5));
    const auto found = upnp::httpGet (five.url ("/0"), never);
    ASSERT_TRUE (found);
    EXPECT_EQ (found->body, "there");

    ScriptedHttpServer six (redirects (6));
    const auto lost = upnp::httpGet (six.url ("/0"), never);
    ASSERT_TRUE (lost);
    EXPECT_EQ (lost->status, 302);
    EXPECT_EQ (six.requests().size(), 6u);

    ScriptedHttpServer nowhere ([] (Exchange& exchange) {
        exchange.send (ScriptedHttpServer::reply (301, "", exchange.path == "/self" ? "Location: /self\r\n" : ""));
    });
    EXPECT_EQ (upnp::httpGet (nowhere.url ("/self"), never)->status, 301);
    EXPECT_EQ (upnp::httpGet (nowhere.url ("/nowhere"), never)->status, 301);
    EXPECT_EQ (nowhere.requests().size(), 2u);
}

TEST (HttpGet, NoOtherProtocolIsSpokenNotEvenAfterARedirect)
{
    ScriptedHttpServer server ([] (Exchange& exchange) {
        exchange.send (ScriptedHttpServer::reply (302, "", "Location: " + exchange.path.substr (1) + "\r\n"));
    });

    for (const auto* url :
         { "file:///etc/passwd", "ftp://127.0.0.1/", "gopher://127.0.0.1/", "//127.0.0.1/", "127.0.0.1", "" })
    {
        EXPECT_FALSE (upnp::httpGet (url, never)) << url;

        if (std::string (url).find (':') != std::string::npos)
        {
            EXPECT_FALSE (upnp::httpGet (server.url ("/" + std::string (url)), never)) << url;
        }
    }
}

TEST (HttpGet, ABodyWithoutEndIsCutAtTheLimit)
{
    ScriptedHttpServer server ([] (Exchange& exchange) {
        exchange.send ("HTTP/1.1 200 OK\r\n\r\n");

        while (exchange.send (std::string (65536, '<')))
        {
        }
    });

    const auto reply = upnp::httpGet (server.url ("/"), never);
    ASSERT_TRUE (reply);
    EXPECT_TRUE (reply->bodyTooLong);
    EXPECT_EQ (reply->body.size(), upnp::HttpLimits().bodySize);
}

TEST (HttpGet, ASilentServerIsGivenUpAfterASecondAHopAndASlowBodyLater)
{
    ScriptedHttpServer server ([] (Exchange& exchange) {
        if (exchange.path == "/0" || exchange.path == "/1")
        {
            exchange.wait (900);
            exchange.send (
                ScriptedHttpServer::reply (302, "", exchange.path == "/0" ? "Location: /1\r\n" : "Location: /2\r\n"));
        }

        if (exchange.path == "/body" || exchange.path == "/2")
        {
            exchange.send ("HTTP/1.1 200 OK\r\nContent-Length: 13\r\n\r\n<root>");
            exchange.wait (1200);
            exchange.send ("</root>");
        }
        else if (exchange.path == "/header")
            exchange.send ("HTTP/1.1 200 OK\r\n");

        while (exchange.wait (5000))
        {
        }
    });

    auto start = steady_clock::now();
    EXPECT_FALSE (upnp::httpGet (server.url ("/silence"), never, withTimes (upnp::HttpLimits().headerTime, 60s)));
    EXPECT_FALSE (upnp::httpGet (server.url ("/header"), never, withTimes (400ms, 60s)));
    EXPECT_LT (steady_clock::now() - start, patience);
    EXPECT_EQ (1000ms, upnp::HttpLimits().headerTime);

    // Three requests of which each alone keeps the limit, and then a body that comes later than any header may.
    const auto body = upnp::httpGet (server.url ("/0"), never, withTimes (1600ms, 8s));
    ASSERT_TRUE (body);
    EXPECT_EQ ("<root></root>", body->body);

    EXPECT_FALSE (upnp::httpGet (server.url ("/0"), never, withTimes (60s, 1500ms))) << "for all hops together";

    start = steady_clock::now();
    EXPECT_EQ ("<root>", upnp::httpGet (server.url ("/body"), never, withTimes (60s, 600ms))->body);
    EXPECT_LT (steady_clock::now() - start, patience);
}

/** None of these may take as long as it is allowed to. */
TEST (HttpGet, AHeaderWithoutEndTheBodyOfAnErrorAndAStopRequestEndItAtOnce)
{
    const auto longLimits = withTimes (60s, 60s);
    ScriptedHttpServer server ([] (Exchange& exchange) {
        if (exchange.path == "/error")
            exchange.send ("HTTP/1.1 404 Not Found\r\nContent-Length: 1000\r\n\r\n");

        if (exchange.path == "/header")
            exchange.send ("HTTP/1.1 200 OK\r\n");

        while (exchange.path == "/header" && exchange.send ("X: " + std::string (1000, 'x') + "\r\n"))
        {
        }

        exchange.wait (60000);
    });

    const auto start = steady_clock::now();
    EXPECT_FALSE (upnp::httpGet (server.url ("/header"), never, longLimits));
    EXPECT_EQ (404, upnp::httpGet (server.url ("/error"), never, longLimits)->status);
    const auto now = steady_clock::now();
    EXPECT_FALSE (upnp::httpGet (
        server.url ("/"), [now] { return steady_clock::now() - now > 100ms; }, longLimits));
    EXPECT_LT (steady_clock::now() - start, patience);
}
