// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/ScanHandler.h"

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

    /** Waits until so many requests have failed. */
    bool waitForFailedRequests (int count) const
    {
        return eventually ([&] { return log.count ("WARN", "Sending M-SEARCH request failed!") >= count; });
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

TEST_F (ScanHandlerTest, EachReceiverIsFoundOnceOnWhateverInterfacesItAnswers)
{
    NetworkNamespace left, right;
    home->connect ("10.81.1.1", left, "10.81.1.2");
    home->connect ("10.81.2.1", right, "10.81.2.2");
    home->connect ("10.81.3.1", right, "10.81.3.2");
    const auto leftDevice =
        makeDevice (left, { .address = "10.81.1.2", .usn = "uuid:left", .description = FakeDevice::ours ("Left", 1) });
    const auto makeRight = [&] (const std::string& address) {
        return makeDevice (right,
                           { .address = address, .usn = "uuid:right", .description = FakeDevice::ours ("Right", 2) });
    };
    const auto first = makeRight ("10.81.2.2"), second = makeRight ("10.81.3.2");

    startScan();
    ASSERT_TRUE (callback.waitForCalls (3));

    // The second search brings the same answers.
    ASSERT_TRUE (leftDevice->waitForSearches (2) && first->waitForSearches (2) && second->waitForSearches (2));
    EXPECT_LT (endScan(), patience);

    auto calls = callback.calls();
    const auto usedAddress = first->fetches().empty() ? "10.81.3.2" : "10.81.2.2";
    std::sort (calls.begin() + 1, calls.end() - 1);
    EXPECT_EQ ((Calls { "started", "VeltraIO|TCP:10.81.1.2:1|Left",
                        std::string ("VeltraIO|TCP:") + usedAddress + ":2|Right", "ended" }),
               calls);
    EXPECT_EQ (1u, leftDevice->fetches().size());
    EXPECT_EQ (1u, first->fetches().size() + second->fetches().size());

    const auto searches = leftDevice->searches();
    EXPECT_EQ ("M-SEARCH * HTTP/1.1\r\nHOST:239.255.255.250:1900\r\nST:upnp:rootdevice\r\n"
               "MAN:\"ssdp:discover\"\r\nMX:3\r\n",
               searches[0].bytes);
    EXPECT_EQ ("10.81.1.1", searches[0].sender);
    EXPECT_EQ (searches[0].senderPort, searches[1].senderPort);

    // Three seconds, with room for a busy machine on both sides.
    EXPECT_GT (searches[1].time - searches[0].time, 1500ms);
    EXPECT_LT (searches[1].time - searches[0].time, 5500ms);

    for (const auto* text :
         { "ScanHandler::ScanHandler", "UPnP scanning thread started", "Starting UPnP handler for IP 127.0.0.1",
           "Starting UPnP handler for IP 10.81.1.1", "Starting UPnP handler for IP 10.81.2.1",
           "ScanHandler::~ScanHandler", "UPnP scanning thread stopped" })
        EXPECT_EQ (1, log.count ("DEBUG", text)) << text;

    EXPECT_EQ (1, log.count ("DEBUG", "Added job entry " + leftDevice->location()));
    EXPECT_TRUE (log.contains ("TRACE", "M-SEARCH request sent on IF 10.81.2.1..."));
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

    EXPECT_EQ (4u, callback.calls().size());
    EXPECT_EQ (1, log.count ("DEBUG", "Added job entry " + device->url ("/1")));
    EXPECT_EQ (1, log.count ("DEBUG", "Added job entry " + device->url ("/3")));
    EXPECT_EQ (2u, device->fetches().size());
}

TEST_F (ScanHandlerTest, SilentServersDoNotHideAReceiver)
{
    const int silent = 4 * juce::SystemStats::getNumCpus(); // four rounds of all the pool's threads
    const auto device = makeDevice (
        *home, { .address = "127.0.0.1",
                 .answers =
                     [silent] (const FakeDevice& self, const auto&) {
                         std::vector<std::string> answers;

                         for (int i = 0; i <= silent; ++i)
                             answers.push_back (FakeDevice::answer (
                                 std::to_string (i), self.url ((i < silent ? "/silent" : "/") + std::to_string (i))));

                         return answers;
                     },
                 .script =
                     [] (auto& exchange) {
                         if (exchange.path.starts_with ("/silent"))
                             exchange.wait (60000);
                         else
                             exchange.send (ScriptedHttpServer::reply (200, FakeDevice::ours ("Patient", 1)));
                     } });

    startScan();
    ASSERT_TRUE (device->waitForSearches (1));
    const auto start = steady_clock::now();
    ASSERT_TRUE (callback.waitForCalls (2));
    EXPECT_LT (steady_clock::now() - start, 9s); // four seconds; twelve where each may take as long as a whole fetch
    endScan();
}

TEST_F (ScanHandlerTest, AnotherTargetIsSearchedAndOtherAnswersAreIgnored)
{
    startScan ("urn:of-my-own");
    std::unique_ptr<FakeDevice> device = makeDevice (*home, { .address = "127.0.0.1" });
    ASSERT_TRUE (device->waitForSearches (1));
    EXPECT_NE (device->searches()[0].bytes.find ("\r\nST:urn:of-my-own\r\n"), std::string::npos);
    endScan();
    EXPECT_EQ ((Calls { "started", "ended" }), callback.calls());
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

    eventually ([this] {
        return log.contains ("WARN", "Error reading datagram socket")
               && log.contains ("INFO", "Not a VeltraIO device!");
    });
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
    const auto threadsBefore = threadCount();

    for (int i = 0; i < 5; ++i)
    {
        startScan();
        EXPECT_LT (endScan(), patience);
        EXPECT_LE (threadCount(), threadsBefore);
    }

    const auto calls = callback.calls();
    ASSERT_EQ (calls.size(), 12u);

    for (std::size_t i = 0; i < calls.size(); ++i)
        EXPECT_EQ (calls[i], i % 2 == 0 ? "started" : "ended");
}
