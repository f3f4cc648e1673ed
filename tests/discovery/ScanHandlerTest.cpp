// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/ScanHandler.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/discovery/RecordingCallback.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/LogLines.h"
#include "tests/support/NetworkNamespace.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Calls = RecordingCallback::Calls;

/** What a scan needs to end when a description hangs at that moment, with room for a busy machine. */
constexpr auto patience = 8s;

auto threadsOfThisProcess()
{
    const std::filesystem::directory_iterator tasks ("/proc/self/task");
    return std::distance (begin (tasks), end (tasks));
}

class ScanHandlerTest : public PrivateNetworkTest
{
protected:
    /** Starts a scan at home. */
    void startScan (const juce::String& target = {})
    {
        home->run ([&] { scan = std::make_unique<upnp::ScanHandler> (&callback, target); });
    }

    std::chrono::nanoseconds endScan()
    {
        const auto start = steady_clock::now();
        scan.reset();
        return steady_clock::now() - start;
    }

    /** Waits until so many requests have failed. @returns false after 20 seconds without them */
    bool waitForFailedRequests (int count) const
    {
        const auto failed = [this] { return log.count ("WARN", "Sending M-SEARCH request failed!"); };

        for (int turns = 0; turns < 1000 && failed() < count; ++turns)
            std::this_thread::sleep_for (20ms);

        return failed() >= count;
    }

    static std::unique_ptr<FakeDevice> makeDevice (const NetworkNamespace& network, const FakeDevice::Options& options)
    {
        std::unique_ptr<FakeDevice> device;
        network.run ([&] { device = std::make_unique<FakeDevice> (options); });
        return device;
    }

    LogLines log;
    RecordingCallback callback;
    std::unique_ptr<upnp::ScanHandler> scan;
};

}

TEST_F (ScanHandlerTest, TwoInterfacesWithAReceiverEachAreBothFound)
{
    NetworkNamespace left, right;
    home->connect ("10.81.1.1", left, "10.81.1.2");
    home->connect ("10.81.2.1", right, "10.81.2.2");
    const auto leftDevice =
        makeDevice (left, { .address = "10.81.1.2", .usn = "uuid:left", .description = FakeDevice::ours ("Left", 1) });
    const auto rightDevice = makeDevice (
        right, { .address = "10.81.2.2", .usn = "uuid:right", .description = FakeDevice::ours ("Right", 2) });

    startScan();
    ASSERT_TRUE (callback.waitForCalls (3));

    // The second search brings the same answers.
    ASSERT_TRUE (leftDevice->waitForSearches (2) && rightDevice->waitForSearches (2));
    EXPECT_LT (endScan(), patience);

    auto calls = callback.calls();
    std::sort (calls.begin() + 1, calls.begin() + 3);
    EXPECT_EQ (calls,
               (Calls { "started", "VeltraIO|TCP:10.81.1.2:1|Left", "VeltraIO|TCP:10.81.2.2:2|Right", "ended" }));
    EXPECT_EQ (leftDevice->fetches().size(), 1u);

    const auto searches = leftDevice->searches();
    EXPECT_EQ (searches[0].bytes, "M-SEARCH * HTTP/1.1\r\nHOST:239.255.255.250:1900\r\nST:upnp:rootdevice\r\n"
                                  "MAN:\"ssdp:discover\"\r\nMX:3\r\n");
    EXPECT_EQ (searches[0].sender, "10.81.1.1");
    EXPECT_EQ (searches[0].senderPort, searches[1].senderPort);

    // Three seconds, with room for a busy machine on both sides.
    EXPECT_GT (searches[1].time - searches[0].time, 1500ms);
    EXPECT_LT (searches[1].time - searches[0].time, 5500ms);

    for (const auto* text :
         { "ScanHandler::ScanHandler", "UPnP scanning thread started", "Starting UPnP handler for IP 127.0.0.1",
           "Starting UPnP handler for IP 10.81.1.1", "Starting UPnP handler for IP 10.81.2.1",
           "ScanHandler::~ScanHandler", "UPnP scanning thread stopped" })
        EXPECT_EQ (log.count ("DEBUG", text), 1) << text;

    EXPECT_EQ (log.count ("DEBUG", "Added job entry " + leftDevice->location()), 1);
    EXPECT_TRUE (log.contains ("TRACE", "M-SEARCH request sent on IF 10.81.2.1..."));
}

TEST_F (ScanHandlerTest, AReceiverThatAnswersOnTwoInterfacesIsFoundOnce)
{
    NetworkNamespace there;
    home->connect ("10.81.1.1", there, "10.81.1.2");
    home->connect ("10.81.2.1", there, "10.81.2.2");
    const auto first = makeDevice (there, { .address = "10.81.1.2", .usn = "uuid:same" });
    const auto second = makeDevice (there, { .address = "10.81.2.2", .usn = "uuid:same" });

    startScan();
    ASSERT_TRUE (callback.waitForCalls (2));
    ASSERT_TRUE (first->waitForSearches (2) && second->waitForSearches (2));
    endScan();

    EXPECT_EQ (callback.calls().size(), 3u);
    EXPECT_EQ (first->fetches().size() + second->fetches().size(), 1u);
}

TEST_F (ScanHandlerTest, ADeviceIsKnownByItsUsnAndByItsLocation)
{
    const auto device =
        makeDevice (*home, { .address = "127.0.0.1", .answers = [] (const FakeDevice& self, const auto&) {
                                return std::vector { FakeDevice::answer ("a", self.url ("/1")),
                                                     FakeDevice::answer ("b", self.url ("/1")),
                                                     FakeDevice::answer ("b", self.url ("/2")),
                                                     FakeDevice::answer ("c", self.url ("/2")),
                                                     FakeDevice::answer ("d", self.url ("/3")) };
                            } });

    startScan();
    ASSERT_TRUE (callback.waitForCalls (3));
    endScan();

    EXPECT_EQ (callback.calls().size(), 4u);
    EXPECT_EQ (log.count ("DEBUG", "Added job entry " + device->url ("/1")), 1);
    EXPECT_EQ (log.count ("DEBUG", "Added job entry " + device->url ("/3")), 1);
    EXPECT_EQ (device->fetches().size(), 2u);
}

TEST_F (ScanHandlerTest, LoopbackAloneIsSearchedAndNothingIsFoundWhereNothingIs)
{
    startScan ("urn:of-my-own");
    std::unique_ptr<FakeDevice> device = makeDevice (*home, { .address = "127.0.0.1" });
    ASSERT_TRUE (device->waitForSearches (1));
    EXPECT_NE (device->searches()[0].bytes.find ("\r\nST:urn:of-my-own\r\n"), std::string::npos);
    endScan();
    EXPECT_EQ (callback.calls(), (Calls { "started", "ended" }));

    startScan();
    ASSERT_TRUE (callback.waitForCalls (4));
    endScan();
    EXPECT_EQ (callback.calls()[3], "VeltraIO|TCP:127.0.0.1:6000|Fake");
}

TEST_F (ScanHandlerTest, AnInterfaceThatIsDownOrGoesDownIsLoggedAndTheOthersGoOn)
{
    NetworkNamespace there, dead;
    home->connect ("10.81.1.1", there, "10.81.1.2");
    home->connect ("10.81.2.1", there, "10.81.2.2");
    home->connect ("10.81.3.1", dead, "10.81.3.2");
    home->ip ("link set " + NetworkNamespace::interfaceName ("10.81.3.1") + " down");

    const auto goesDown = makeDevice (there, { .address = "10.81.1.2", .usn = "uuid:down", .ignoredSearches = 9 });
    const auto stays = makeDevice (there, { .address = "10.81.2.2", .usn = "uuid:up", .ignoredSearches = 1 });

    startScan();
    ASSERT_TRUE (goesDown->waitForSearches (1) && stays->waitForSearches (1) && waitForFailedRequests (1));
    EXPECT_EQ (log.count ("DEBUG", "Starting UPnP handler for IP 10.81.3.1"), 1);

    home->ip ("link set " + NetworkNamespace::interfaceName ("10.81.1.1") + " down");
    ASSERT_TRUE (callback.waitForCalls (2) && waitForFailedRequests (3));
    EXPECT_LT (endScan(), patience);
    EXPECT_EQ (callback.calls(), (Calls { "started", "VeltraIO|TCP:10.81.2.2:6000|Fake", "ended" }));
}

TEST_F (ScanHandlerTest, WhatIsNoneOfOursAndWhatComesUnaskedIsNotReported)
{
    const auto lamp =
        makeDevice (*home, { .address = "127.0.0.1",
                             .usn = "uuid:lamp",
                             .description = "<root><device><friendlyName>Lamp</friendlyName></device></root>" });
    startScan();
    ASSERT_TRUE (lamp->waitForSearches (1));
    const int port = lamp->searches()[0].senderPort;

    lamp->sendTo ("127.0.0.1", port,
                  "NOTIFY * HTTP/1.1\r\nNT: upnp:rootdevice\r\nNTS: ssdp:alive\r\nUSN: uuid:unasked\r\nLOCATION: "
                      + lamp->url ("/unasked") + "\r\n\r\n");
    lamp->sendTo ("127.0.0.1", port, "");

    for (int turns = 0; turns < 500
                        && ! (log.contains ("WARN", "Error reading datagram socket")
                              && log.contains ("INFO", "Not a VeltraIO device!"));
         ++turns)
        std::this_thread::sleep_for (20ms);

    endScan();
    EXPECT_EQ (log.count ("WARN", "Error reading datagram socket"), 1);
    EXPECT_EQ (log.count ("INFO", "Not a VeltraIO device!"), 1);
    EXPECT_EQ (lamp->fetches().size(), 1u);
    EXPECT_EQ (callback.calls(), (Calls { "started", "ended" }));
}

TEST_F (ScanHandlerTest, AScanThatIsDeletedAtOnceStillStartsAndEndsAndLeavesNoThreadBehind)
{
    startScan();
    endScan();
    const auto threadsBefore = threadsOfThisProcess();

    for (int i = 0; i < 5; ++i)
    {
        startScan();
        EXPECT_LT (endScan(), patience);
        EXPECT_LE (threadsOfThisProcess(), threadsBefore);
    }

    const auto calls = callback.calls();
    ASSERT_EQ (calls.size(), 12u);

    for (std::size_t i = 0; i < calls.size(); ++i)
        EXPECT_EQ (calls[i], i % 2 == 0 ? "started" : "ended");
}
