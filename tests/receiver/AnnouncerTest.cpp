#include "tools/receiver/Announcer.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "discovery/HttpGet.h"
#include "tests/discovery/NetworkNamespace.h"

namespace veltra::receiver {

namespace {

using Clock = std::chrono::steady_clock;

class AnnouncerTest : public PrivateNetworkTest
{
protected:
    struct Answer
    {
        std::chrono::milliseconds after;
        std::string text;
    };

    static constexpr const char* kSearch = "M-SEARCH * HTTP/1.1\r\nST:upnp:rootdevice\r\nMAN:\"ssdp:discover\"\r\nMX:1\r\n";

    /** Sends searches from an address of the present network and collects what comes back. */
    static std::vector<Answer> search (const std::string& from, int count, std::size_t expected)
    {
        sockaddr_in name {};
        name.sin_family = AF_INET;
        ::inet_pton (AF_INET, from.c_str(), &name.sin_addr);
        const Descriptor socket (::socket (AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const timeval patience { 2, 0 };
        ::setsockopt (socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof (patience));
        EXPECT_EQ (::bind (socket.get(), reinterpret_cast<const sockaddr*> (&name), sizeof (name)), 0);

        ::inet_pton (AF_INET, "239.255.255.250", &name.sin_addr);
        name.sin_port = htons (1900);
        const std::string text = kSearch;
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i)
            EXPECT_EQ (::sendto (socket.get(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr*> (&name), sizeof (name)),
                       static_cast<ssize_t> (text.size()));

        std::vector<Answer> answers;
        char bytes[4096];
        while (answers.size() < expected)
        {
            const auto size = ::recv (socket.get(), bytes, sizeof (bytes), 0);
            if (size <= 0)
                break;
            answers.push_back ({ std::chrono::duration_cast<std::chrono::milliseconds> (Clock::now() - start),
                                 { bytes, static_cast<std::size_t> (size) } });
        }
        return answers;
    }

    static std::string locationOf (const Answer& answer)
    {
        const auto start = answer.text.find ("LOCATION: ") + 10;
        return answer.text.substr (start, answer.text.find ("\r\n", start) - start);
    }
};

TEST_F (AnnouncerTest, AnswersComeAtDifferentTimesWithinTheWaitThatTheSearchAllows)
{
    home->run ([]
    {
        Announcer announcer ({ .friendlyName = "One", .port = 1 }, "127.0.0.1", [] (const auto&) {});
        const auto answers = search ("127.0.0.1", 30, 30);
        ASSERT_EQ (answers.size(), 30u);

        // Thirty draws out of a second that all lie within a third of it: less likely than 1 in 10^12.
        EXPECT_GT (answers.back().after - answers.front().after, std::chrono::milliseconds (333));
    });
}

TEST_F (AnnouncerTest, AFloodOfSearchesIsNotAnsweredInFull)
{
    home->run ([]
    {
        Announcer announcer ({ .friendlyName = "One", .port = 1 }, "127.0.0.1", [] (const auto&) {});
        EXPECT_LT (search ("127.0.0.1", 1000, 1000).size(), 500u);
    });
}

TEST_F (AnnouncerTest, SeveralOfOneMachineAnswerOnEveryInterfaceByTheAddressThatReachesThem)
{
    NetworkNamespace there;
    home->connect ("10.84.1.1", there, "10.84.1.2");
    home->connect ("10.84.2.1", there, "10.84.2.2");

    std::unique_ptr<Announcer> first, second;
    there.run ([&]
    {
        first = std::make_unique<Announcer> (Announcement { .friendlyName = "One", .port = 1 }, "0.0.0.0", [] (const auto&) {});
        second = std::make_unique<Announcer> (Announcement { .friendlyName = "Two", .port = 2 }, "10.84.2.2", [] (const auto&) {});
    });

    home->run ([&]
    {
        const auto expectLocations = [] (const std::string& from, std::vector<std::string> expected)
        {
            std::vector<std::string> locations;
            for (const auto& answer : search (from, 1, expected.size() + 1))
                locations.push_back (locationOf (answer));
            std::sort (locations.begin(), locations.end());
            std::sort (expected.begin(), expected.end());
            EXPECT_EQ (locations, expected);
        };

        const auto at = [] (const std::string& host, const Announcer& announcer)
        {
            return "http://" + host + ":" + std::to_string (announcer.httpPort()) + "/description.xml";
        };

        expectLocations ("10.84.1.1", { at ("10.84.1.2", *first) });
        expectLocations ("10.84.2.1", { at ("10.84.2.2", *first), at ("10.84.2.2", *second) });

        const auto get = [] (const std::string& url) { return upnp::httpGet (url, [] { return false; }); };
        const auto description = get (at ("10.84.2.2", *second));
        ASSERT_TRUE (description);
        EXPECT_NE (description->body.find ("<friendlyName>Two</friendlyName>"), std::string::npos);
        EXPECT_EQ (get ("http://10.84.2.2:" + std::to_string (second->httpPort()) + "/other")->status, 404);
    });
}

}

}
