// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Announcer.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/FakeDevice.h"
#include "tests/support/NetworkNamespace.h"

namespace veltra::receiver {

namespace {

class AnnouncerTest : public PrivateNetworkTest
{
protected:
    static constexpr const char* kSearch =
        "M-SEARCH * HTTP/1.1\r\nST:upnp:rootdevice\r\nMAN:\"ssdp:discover\"\r\nMX:1\r\n";
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

TEST_F (AnnouncerTest, OnAllInterfacesItAnswersWithTheAddressThatReachesIt)
{
    NetworkNamespace there;
    home->connect ("10.84.1.1", there, "10.84.1.2");
    home->connect ("10.84.2.1", there, "10.84.2.2");

    std::unique_ptr<Announcer> first, second;
    const auto ignore = [] (const auto&) {};
    there.run ([&] {
        first = std::make_unique<Announcer> (Announcement { .port = 1 }, "0.0.0.0", ignore);
        second = std::make_unique<Announcer> (Announcement { .port = 2 }, "10.84.2.2", ignore);
    });

    const auto expectAnswer = [] (const std::string& from, std::size_t count, const std::string& host,
                                  const Announcer& by) {
        const auto location =
            "LOCATION: http://" + host + ":" + std::to_string (by.httpPort()) + "/description.xml\r\n";
        const auto answers = FakeDevice::search (from, kSearch, 1, count + 1);
        EXPECT_EQ (count, answers.size());
        EXPECT_TRUE (std::ranges::any_of (answers, [&] (const auto& a) { return a.find (location) != a.npos; }));
    };
    home->run ([&] {
        expectAnswer ("10.84.1.1", 1, "10.84.1.2", *first);
        expectAnswer ("10.84.2.1", 2, "10.84.2.2", *first);
        expectAnswer ("10.84.2.1", 2, "10.84.2.2", *second);
    });
}

}

}
