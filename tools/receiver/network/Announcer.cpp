// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Announcer.h"

#include <algorithm>
#include <array>
#include <random>
#include <system_error>
#include <utility>

#include "discovery/LocalAddresses.h"

namespace veltra::receiver {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kGroup = "239.255.255.250";
constexpr std::uint16_t kSsdpPort = 1900;
constexpr const char* kPath = "/description.xml";
constexpr std::chrono::seconds kRequestTime { 2 }; ///< for one HTTP exchange
constexpr std::size_t kMaxRequest = 8192;

in_addr numeric (const std::string& text)
{
    in_addr result {};
    ::inet_pton (AF_INET, text.c_str(), &result);
    return result;
}

sockaddr_in socketName (in_addr host, std::uint16_t portInHostOrder)
{
    sockaddr_in name {};
    name.sin_family = AF_INET;
    name.sin_port = htons (portInHostOrder);
    name.sin_addr = host;
    return name;
}

std::string text (in_addr host)
{
    std::array<char, INET_ADDRSTRLEN> result {};
    ::inet_ntop (AF_INET, &host, result.data(), result.size());
    return result.data();
}

/** The interfaces to answer on, by an address of each. */
std::vector<std::string> interfaces (const std::string& address)
{
    if (address != "0.0.0.0")
        return { address };

    std::vector<std::string> all;

    for (const auto& local : upnp::searchAddresses (upnp::adapterAddresses()))
        all.push_back (local.toStdString());

    return all;
}

Descriptor openSearchSocket (const std::string& address)
{
    const auto fail = [&address] {
        throw std::system_error (platform::lastError(), "Cannot answer searches on " + address);
    };
    Descriptor result (platform::openSocket (SOCK_DGRAM));

    // All receivers and other UPnP software of this machine share the port; a search reaches each of them.
    if (! result.isOpen() || ! platform::bindToGroup (result.get(), numeric (kGroup), kSsdpPort))
        fail();

    platform::makeNonBlocking (result.get());
    bool joined = false;

    for (const auto& local : interfaces (address))
    {
        const ip_mreq membership { numeric (kGroup), numeric (local) };
        joined = platform::setOption (result.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, membership) || joined;
    }

    if (! joined)
        fail();

    return result;
}

/** Waits for a socket until a time.
    @returns false when the time is over or the signal was raised */
bool waitFor (platform::SocketHandle socket, short events, Clock::time_point end, const StopSignal& stop)
{
    for (;;)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds> (end - Clock::now()).count();

        if (left <= 0 || stop.isRaised())
            return false;

        pollfd waiting[] = { { socket, events, 0 }, { stop.handle(), POLLIN, 0 } };

        if (platform::wait (waiting, 2, static_cast<int> (std::min<std::int64_t> (left, 60000))) > 0
            && waiting[1].revents == 0)
            return true;
    }
}

}

Announcer::Announcer (Announcement whatToSay, const std::string& bindAddress, Log logToUse)
    : announcement (std::move (whatToSay)),
      address (bindAddress),
      log (std::move (logToUse)),
      listener (bindAddress, 0),
      searchSocket (openSearchSocket (bindAddress))
{
    searches = std::thread ([this] { answerSearches(); });
    descriptions = std::thread ([this] { serveDescription(); });
}

Announcer::~Announcer()
{
    stop.raise();
    searches.join();
    descriptions.join();
}

void Announcer::answerSearches()
{
    while (! stop.isRaised())
    {
        auto next = Clock::now() + std::chrono::hours (1);

        for (const auto& answer : pending)
            next = std::min (next, answer.due);

        if (waitFor (searchSocket.get(), POLLIN, next, stop))
            takeSearch();

        sendDueAnswers();
    }
}

void Announcer::takeSearch()
{
    std::array<char, 4096> bytes;
    sockaddr_in sender {};
    socklen_t size = sizeof (sender);
    const auto count =
        ::recvfrom (searchSocket.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*> (&sender), &size);

    if (count <= 0)
        return;

    const auto search = Announcement::parseSearch ({ bytes.data(), static_cast<std::size_t> (count) });

    if (! search)
        return;

    static thread_local std::mt19937 random { std::random_device {}() };
    std::uniform_int_distribution<int> delay_ms (
        0, static_cast<int> (std::chrono::milliseconds (search->longestWait).count()) - 1);
    const auto due = Clock::now() + std::chrono::milliseconds (delay_ms (random));

    for (auto& answer : announcement.answers (*search, locationFor (sender.sin_addr.s_addr)))
        if (pending.size() < kMaxPending)
            pending.push_back ({ due, sender.sin_addr.s_addr, sender.sin_port, std::move (answer) });
}

void Announcer::sendDueAnswers()
{
    const auto now = Clock::now();
    std::erase_if (pending, [&] (const PendingAnswer& answer) {
        if (answer.due > now)
            return false;

        auto name = socketName ({ answer.address }, 0);
        name.sin_port = answer.port;
        ::sendto (searchSocket.get(), answer.text.data(), static_cast<platform::ByteCount> (answer.text.size()),
                  platform::kNoSignal, reinterpret_cast<const sockaddr*> (&name), sizeof (name));
        log ("answered the search of " + text (name.sin_addr));
        return true;
    });
}

std::string Announcer::locationFor (std::uint32_t peer) const
{
    auto local = numeric (address);

    // On all interfaces, the location has the address through which the peer reaches this machine: the system
    // chooses it for a connected socket.
    if (local.s_addr == INADDR_ANY)
    {
        const Descriptor probe (platform::openSocket (SOCK_DGRAM));
        auto name = socketName ({ peer }, kSsdpPort);
        socklen_t size = sizeof (name);

        if (::connect (probe.get(), reinterpret_cast<const sockaddr*> (&name), sizeof (name)) == 0
            && ::getsockname (probe.get(), reinterpret_cast<sockaddr*> (&name), &size) == 0)
            local = name.sin_addr;
    }

    return "http://" + text (local) + ":" + std::to_string (httpPort()) + kPath;
}

void Announcer::serveDescription()
{
    while (const auto client = listener.accept (stop))
        serve (*client);
}

void Announcer::serve (const Descriptor& client) const
{
    platform::prepareAccepted (client.get());
    const auto end = Clock::now() + kRequestTime;
    std::string request;
    std::array<char, 1024> bytes;

    while (request.find ("\r\n\r\n") == request.npos)
    {
        if (request.size() > kMaxRequest || ! waitFor (client.get(), POLLIN, end, stop))
            return;

        const auto count = ::recv (client.get(), bytes.data(), bytes.size(), 0);

        if (count <= 0)
            return;

        request.append (bytes.data(), static_cast<std::size_t> (count));
    }

    const bool isGet = request.starts_with ("GET ");
    const bool isDescription = isGet && request.substr (4, request.find (' ', 4) - 4) == kPath;
    const auto body = isDescription ? announcement.description() : std::string();
    const auto reply = std::string ("HTTP/1.1 ")
                       + (isDescription ? "200 OK"
                          : isGet       ? "404 Not Found"
                                        : "405 Method Not Allowed")
                       + "\r\nContent-Type: text/xml; charset=\"utf-8\"\r\nContent-Length: "
                       + std::to_string (body.size()) + "\r\nConnection: close\r\n\r\n" + body;

    if (isDescription)
        log ("served the description");

    for (std::string_view rest = reply; ! rest.empty();)
    {
        if (! waitFor (client.get(), POLLOUT, end, stop))
            return;

        const auto count =
            ::send (client.get(), rest.data(), static_cast<platform::ByteCount> (rest.size()), platform::kNoSignal);

        if (count < 0)
            return;

        rest.remove_prefix (static_cast<std::size_t> (count));
    }
}

}
