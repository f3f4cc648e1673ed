// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Announcer.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "discovery/HttpGet.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/NetworkNamespace.h"

namespace veltra::receiver {

namespace {

class AnnouncerTest : public PrivateNetworkTest
{
protected:
    static constexpr const char* kSearch =
        "M-SEARCH * HTTP/1.1\r\nST:upnp:rootdevice\r\nMAN:\"ssdp:discover\"\r\nMX:1\r\n";

    static std::string locationOf (const std::string& answer)
    {
        const auto start = answer.find ("LOCATION: ") + 10;
        return answer.substr (start, answer.find ("\r\n", start) - start);
    }
};

TEST_F (AnnouncerTest, AnswersComeAtDifferentTimesAndNotToAllOfAFlood)
{
    home->run ([] {
        Announcer announcer ({ .friendlyName = "One", .port = 1 }, "127.0.0.1", [] (const auto&) {});
        std::vector<std::chrono::steady_clock::time_point> times;
        const auto note = [&] { times.push_back (std::chrono::steady_clock::now()); };
        ASSERT_EQ (30u, FakeDevice::search ("127.0.0.1", kSearch, 30, 30, std::chrono::seconds (2), note).size());

        // Thirty draws out of a second that all lie within a third of it: less likely than 1 in 10^12.
        EXPECT_GT (times.back() - times.front(), std::chrono::milliseconds (333));

        EXPECT_LT (FakeDevice::search ("127.0.0.1", kSearch, 1000, 1000).size(), 500u);
    });
}

TEST_F (AnnouncerTest, SeveralOfOneMachineAnswerOnEveryInterfaceByTheAddressThatReachesThem)
{
    NetworkNamespace there;
    home->connect ("10.84.1.1", there, "10.84.1.2");
    home->connect ("10.84.2.1", there, "10.84.2.2");

    std::unique_ptr<Announcer> first, second;
    there.run ([&] {
        first = std::make_unique<Announcer> (Announcement { .friendlyName = "One", .port = 1 }, "0.0.0.0",
                                             [] (const auto&) {});
        second = std::make_unique<Announcer> (Announcement { .friendlyName = "Two", .port = 2 }, "10.84.2.2",
                                              [] (const auto&) {});
    });

    home->run ([&] {
        const auto expectLocations = [] (const std::string& from, std::vector<std::string> expected) {
            std::vector<std::string> locations;

            for (const auto& answer : FakeDevice::search (from, kSearch, 1, expected.size() + 1))
                locations.push_back (locationOf (answer));

            std::sort (locations.begin(), locations.end());
            std::sort (expected.begin(), expected.end());
            EXPECT_EQ (expected, locations);
        };

        const auto at = [] (const std::string& host, const Announcer& announcer) {
            return "http://" + host + ":" + std::to_string (announcer.httpPort()) + "/description.xml";
        };

        expectLocations ("10.84.1.1", { at ("10.84.1.2", *first) });
        expectLocations ("10.84.2.1", { at ("10.84.2.2", *first), at ("10.84.2.2", *second) });

        const auto get = [] (const std::string& url) { return upnp::httpGet (url, [] { return false; }); };
        const auto description = get (at ("10.84.2.2", *second));
        ASSERT_TRUE (description);
        EXPECT_NE (description->body.find ("<friendlyName>Two</friendlyName>"), std::string::npos);
        EXPECT_EQ (404, get ("http://10.84.2.2:" + std::to_string (second->httpPort()) + "/other")->status);
    });
}

}

}
