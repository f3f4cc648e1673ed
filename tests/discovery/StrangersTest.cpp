// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What strangers on the network take from a scan: time of its threads, and servers of the host's own machine.
*/

#include "discovery/ScanHandler.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "discovery/FetchQueue.h"
#include "tests/discovery/RecordingCallback.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/LogLines.h"
#include "tests/support/NetworkNamespace.h"

namespace {

using namespace std::chrono_literals;

const auto threads = static_cast<std::size_t> (juce::SystemStats::getNumCpus());

std::string header (std::size_t length)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string (length) + "\r\n\r\n";
}

class Strangers : public PrivateNetworkTest
{
protected:
    /** Something at the other end of a cable of its own. */
    FakeDevice& add (FakeDevice::Options options)
    {
        const auto network = "10.82." + std::to_string (devices.size()) + ".";
        home->connect (network + "1", street, network + "2");
        options.address = network + "2";
        options.usn = "uuid:" + options.address;
        street.run ([&] { devices.push_back (std::make_unique<FakeDevice> (options)); });
        return *devices.back();
    }

    void startScan()
    {
        home->run ([&] { scan = std::make_unique<upnp::ScanHandler> (&callback, juce::String()); });
    }

    bool foundReceiver (const std::string& name) const
    {
        const auto calls = callback.calls();
        return std::any_of (calls.begin(), calls.end(), [&] (const auto& call) { return call.ends_with ("|" + name); });
    }

    LogLines log;
    RecordingCallback callback;
    NetworkNamespace street;
    std::vector<std::unique_ptr<FakeDevice>> devices;
    std::unique_ptr<upnp::ScanHandler> scan;
};

}

TEST_F (Strangers, OneAddressKeepsAtMostOneThreadWhileAnotherWaits)
{
    const auto count = 20 * threads;
    const auto& many = add (
        { .address = {},
          .answers =
              [count] (const FakeDevice& self, const auto&) {
                  std::vector<std::string> answers;

                  for (std::size_t i = 0; i < count; ++i)
                      answers.push_back (FakeDevice::answer (std::to_string (i), self.url ("/" + std::to_string (i))));

                  return answers;
              },
          .script = [] (auto& exchange) { exchange.wait (60000); } });
    add ({ .address = {}, .description = FakeDevice::ours ("Late", 1), .ignoredSearches = 1 });
    startScan();
    ASSERT_TRUE (callback.waitForCalls (2));
    EXPECT_LT (many.fetches().size(), count);
    scan.reset();
}

TEST_F (Strangers, StalledServersHideNoReceiverNotEvenASlowOne)
{
    // Four rounds of all threads, which take 3 s each where nobody waits.
    for (std::size_t i = 0; i < 4 * threads; ++i)
        add ({ .address = {}, .script = [] (auto& exchange) {
                  exchange.send (header (100));
                  exchange.wait (60000);
              } });

    add ({ .address = {}, .script = [slow = FakeDevice::ours ("Slow", 1)] (auto& exchange) {
              exchange.send (header (slow.size()));
              exchange.wait (1600);
              exchange.send (slow);
          } });
    const auto& prompt = add ({ .address = {}, .description = FakeDevice::ours ("Prompt", 1), .ignoredSearches = 1 });
    startScan();
    ASSERT_TRUE (prompt.waitForSearches (1));
    const auto start = std::chrono::steady_clock::now();

    while (! foundReceiver ("Prompt") && std::chrono::steady_clock::now() - start < 20s)
        std::this_thread::sleep_for (10ms);

    EXPECT_LT (std::chrono::steady_clock::now() - start, 9s); // five; twelve when each keeps its thread
    ASSERT_TRUE (callback.waitForCalls (3));
    EXPECT_TRUE (foundReceiver ("Slow"));
    scan.reset();
}

TEST (FetchQueue, GivesEachSenderATurnBeforeAnyGetsASecondOne)
{
    upnp::FetchQueue queue;
    const auto next = [&] { return queue.begin().value_or (upnp::FetchQueue::Fetch { "none", "", false, false }); };

    for (const char* location : { "a1", "a2", "b1" })
        queue.add ({ { location[0] }, location, false, false });

    const auto first = next();
    EXPECT_EQ ("a1", first.location);
    EXPECT_TRUE (queue.isInTheWay (first)) << "of b1";
    const auto second = next();
    EXPECT_EQ ("b1", second.location);
    EXPECT_FALSE (queue.isInTheWay (first)) << "a2 is of the same sender";
    EXPECT_FALSE (queue.isInTheWay (second)) << "a2 would be the second of its sender";
    EXPECT_EQ ("a2", next().location) << "nobody else waits";

    queue.end (second);
    queue.add ({ "c", "c1", false, true });
    queue.add ({ "d", "d1", false, false });
    EXPECT_EQ (4u, queue.size());
    EXPECT_EQ ("d1", next().location) << "before what had a turn";
    const auto repeated = next();
    EXPECT_EQ ("c1", repeated.location);
    queue.add ({ "e", "e1", false, false });
    EXPECT_FALSE (queue.isInTheWay (repeated)) << "it is interrupted once only";
    EXPECT_EQ ("e1", next().location);
    EXPECT_EQ ("none", next().sender);
}

TEST_F (Strangers, DescriptionsOnThisMachineAreFetchedForThisMachineOnly)
{
    std::unique_ptr<ScriptedHttpServer> local;
    std::unique_ptr<FakeDevice> localReceiver;
    home->run ([&] {
        local = std::make_unique<ScriptedHttpServer> (
            [] (auto& exchange) { exchange.send (ScriptedHttpServer::reply (200, FakeDevice::ours ("Lured", 2))); });
        localReceiver = std::make_unique<FakeDevice> (FakeDevice::Options {
            .address = "127.0.0.1", .usn = "uuid:local", .description = FakeDevice::ours ("Local", 3) });
    });

    const auto port = ":" + std::to_string (local->port()) + "/";
    const std::vector<std::string> locations { "http://127.0.0.1" + port,     "http://LOCALHOST" + port,
                                               "http://127.1" + port + "a",   "http://0x7f000001" + port + "b",
                                               "http://0.0.0.0" + port + "c", "http://[::ffff:127.0.0.1]" + port };
    const auto& stranger = add (
        { .address = {},
          .answers =
              [&] (const FakeDevice& self, const auto&) {
                  auto all = locations;
                  all.push_back (self.url ("/redirect"));
                  std::vector<std::string> answers;

                  for (const auto& location : all)
                      answers.push_back (FakeDevice::answer (location, location));

                  return answers;
              },
          .script =
              [&] (auto& exchange) {
                  exchange.send (ScriptedHttpServer::reply (302, "", "Location: " + locations[0] + "redirected\r\n"));
              } });
    add ({ .address = {}, .description = FakeDevice::ours ("Last", 1), .ignoredSearches = 1 });
    startScan();
    ASSERT_TRUE (callback.waitForCalls (3));
    EXPECT_TRUE (foundReceiver ("Local") && foundReceiver ("Last"));
    EXPECT_EQ (1u, stranger.fetches().size());

    for (const auto& request : local->requests())
        EXPECT_EQ ("", request) << "a connection is closed before anything is sent";

    EXPECT_EQ (1, log.count ("WARN", "An answer from the network that leads to this machine is ignored"));
    scan.reset();
}
