// SPDX-License-Identifier: GPL-3.0-or-later
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/Clock.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"
#include "protocol/TcpDeviceConnection.h"
#include "tests/protocol/TestPeer.h"
#include "tests/support/Envelope.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace veltraio;
using veltra::test::envelopeOf;

/** Polls for up to 10 seconds. */
template <class Condition>
bool eventually (Condition&& condition)
{
    for (const auto end = veltra::steadyMilliseconds() + 10000; veltra::steadyMilliseconds() < end;)
    {
        if (condition())
            return true;

        std::this_thread::sleep_for (1ms);
    }

    return false;
}

/** Collects what a connection hands to its raw callback. */
struct Blocks
{
    explicit Blocks (veltra::ipc::Connection& connection)
    {
        connection.setRawCallback ([this] (const juce::MemoryBlock& block) {
            const std::lock_guard guard (mutex);
            list.emplace_back (static_cast<const char*> (block.getData()), block.getSize());
        });
    }

    bool waitFor (const std::vector<std::string>& expected)
    {
        return eventually ([&] {
            const std::lock_guard guard (mutex);
            return list == expected;
        });
    }

    std::mutex mutex;
    std::vector<std::string> list;
};

const std::string acknowledge = envelopeOf ("veltraio.Acknowledge", { 0x08, 0x01 });

Ping ping;

TEST (TcpDeviceConnection, CarriesAnExchange)
{
    TestPeer peer;
    auto connection = std::make_unique<TcpDeviceConnection> ("127.0.0.1:1");
    EXPECT_EQ (juce::String ("TCP:127.0.0.1:1"), connection->getName());
    EXPECT_FALSE (connection->isConnected());
    EXPECT_EQ (-1, connection->write ("x", 1));

    ASSERT_TRUE (connection->connect ("127.0.0.1", peer.port(), 2000));
    EXPECT_TRUE (connection->isConnected());
    const auto device = peer.accept();
    Dispatcher dispatcher (std::move (connection), "2101FF", true);

    // Noise, small pieces and an unknown message on the way.
    AcknowledgeHandler handler (dispatcher);
    EXPECT_EQ (0, dispatcher.Send (ping));
    EXPECT_EQ (envelopeOf ("veltraio.Ping", ""), device->read (15));
    device->send ("noise" + envelopeOf ("veltraio.Nothing", "abc") + acknowledge.substr (0, 9));
    device->send (acknowledge.substr (9));
    EXPECT_EQ (ReplyState::acknowledged, handler.Wait (10000));
}

TEST (TcpDeviceConnection, AFailedConnectLeavesItDisconnected)
{
    TcpDeviceConnection connection ("");
    int freePort = 0;
    {
        TestPeer peer;
        freePort = peer.port();
        ASSERT_TRUE (connection.connect ("127.0.0.1", freePort, 2000));
    }

    EXPECT_FALSE (connection.connect ("127.0.0.1", freePort, 2000)) << "nobody listens";
    EXPECT_FALSE (connection.isConnected()) << "the old connection is gone too";

    for (const int port : { 0, -1, 65536, freePort + 65536 })
        EXPECT_FALSE (connection.connect ("127.0.0.1", port, 2000)) << port;

    EXPECT_FALSE (connection.connect ("", freePort, 2000));
    EXPECT_FALSE (connection.connect ("no host of this name", freePort, 2000));
    connection.disconnect (true);
}

TEST (TcpDeviceConnection, ConnectingAgainDropsTheOldConnectionAndReadsTheNew)
{
    TestPeer peer;
    TcpDeviceConnection connection ("");
    Blocks blocks (connection);
    ASSERT_TRUE (connection.connect ("localhost", peer.port(), 2000)) << "a name is looked up";
    const auto first = peer.accept();
    ASSERT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
    const auto second = peer.accept();

    first->waitForEnd();
    second->send (acknowledge);
    EXPECT_TRUE (blocks.waitFor ({ acknowledge.substr (3 + 4) }));
}

TEST (TcpDeviceConnection, APeerThatClosesOrResetsCostsNeitherASignalNorACore)
{
    for (const bool orderly : { true, false })
    {
        TestPeer peer;
        auto owned = std::make_unique<TcpDeviceConnection> ("");
        auto& connection = *owned;
        ASSERT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
        auto device = peer.accept();
        Dispatcher dispatcher (std::move (owned), "2101FF", true);

        device->send (acknowledge + acknowledge.substr (0, 5));

        if (orderly)
            device->close();
        else
            device->reset();

        EXPECT_TRUE (connection.isConnected()) << "nobody is told";
        EXPECT_TRUE (eventually ([&] { return dispatcher.Send (ping) == -1; }));

        timespec before {}, after {};
        clock_gettime (CLOCK_PROCESS_CPUTIME_ID, &before);
        std::this_thread::sleep_for (200ms);
        clock_gettime (CLOCK_PROCESS_CPUTIME_ID, &after);
        const auto spent_ms = (after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000;
        EXPECT_LT (spent_ms, 150) << "a reader that spins takes all of the 200 ms";
    }
}

TEST (TcpDeviceConnection, SendingToAPeerThatTakesNothingFailsWithoutWaiting)
{
    TestPeer peer;
    TcpDeviceConnection connection ("");
    ASSERT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
    const auto device = peer.accept();
    const std::string large (16 * 1024 * 1024, 'x');

    const auto start = veltra::steadyMilliseconds();
    const int taken = connection.write (large.data(), static_cast<int> (large.size()));
    EXPECT_GT (taken, 0);
    EXPECT_LT (taken, static_cast<int> (large.size()));
    EXPECT_TRUE (eventually ([&] { return connection.write (large.data(), static_cast<int> (large.size())) == -1; }));
    EXPECT_LT (veltra::steadyMilliseconds() - start, 5000);
}

TEST (TcpDeviceConnection, DisconnectingWhileOthersSendIsSafe)
{
    TestPeer peer;
    TcpDeviceConnection connection ("");
    std::atomic<bool> done { false };
    std::vector<std::thread> senders;

    for (int i = 0; i < 2; ++i)
        senders.emplace_back ([&] {
            while (! done)
            {
                connection.write (acknowledge.data(), static_cast<int> (acknowledge.size()));
                connection.isConnected();
                connection.getName();
                std::this_thread::yield();
            }
        });

    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
        const auto device = peer.accept();
        device->send (acknowledge);

        if (i % 2 == 0)
            device->close();

        connection.disconnect (true);
        EXPECT_FALSE (connection.isConnected());
    }

    done = true;

    for (auto& sender : senders)
        sender.join();
}

TEST (TcpDeviceConnection, AHandlerMayDisconnect)
{
    TestPeer peer;
    TcpDeviceConnection connection ("");
    std::atomic<bool> handled { false };
    connection.setRawCallback ([&] (const juce::MemoryBlock&) {
        connection.disconnect (true);
        handled = true;
    });
    ASSERT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
    const auto device = peer.accept();
    device->send (acknowledge + acknowledge);
    EXPECT_TRUE (eventually ([&] { return handled.load(); }));
    device->waitForEnd();
}

TEST (TcpDeviceConnection, ItsDestructorEndsWithMessagesStillArrivingAndAHandlerLeft)
{
    TestPeer peer;
    auto owned = std::make_unique<TcpDeviceConnection> ("", 100);
    ASSERT_TRUE (owned->connect ("127.0.0.1", peer.port(), 2000));
    const auto device = peer.accept();
    auto dispatcher = std::make_unique<Dispatcher> (std::move (owned), "2101FF", true);
    AcknowledgeHandler left (*dispatcher);

    std::thread flood ([&] {
        while (device->send (acknowledge))
        {
        }
    });

    EXPECT_TRUE (eventually ([&] { return left.Wait (1) != ReplyState::pending; }));
    AcknowledgeHandler another (*dispatcher);
    dispatcher = nullptr;
    flood.join();
}

struct StreamConnection final : veltra::ipc::TcpConnection
{
    StreamConnection() : TcpConnection (5, 0) {}
    ~StreamConnection() override { disconnect (false); }
};

TEST (TcpConnection, TheGenericFramingCarriesMessagesBothWays)
{
    TestPeer peer;
    StreamConnection connection;
    Blocks blocks (connection);
    std::atomic<int> connects { 0 }, losses { 0 };
    connection.listeners.push_back ([&] (bool connected) { ++(connected ? connects : losses); });

    auto socket = std::make_unique<juce::StreamingSocket>();
    ASSERT_TRUE (socket->connect ("127.0.0.1", peer.port(), 2000));
    ASSERT_TRUE (connection.attach (std::move (socket)));
    EXPECT_EQ (juce::String ("127.0.0.1"), connection.getName());
    const auto device = peer.accept();

    juce::MemoryOutputStream stream;
    stream.writeRepeatedByte (0, static_cast<std::size_t> (connection.getHeaderSize()));
    stream.write ("hello", 5);
    EXPECT_TRUE (connection.send (stream));
    EXPECT_EQ ("\x2C\x9E\xB4\xF2\x05\x00\x00\x00hello"s, device->read (13));

    const std::string body (100000, 'y');
    device->send ("\x2C\x9E\xB4\xF2\xA0\x86\x01\x00"s + body + "\x2C\x9E\xB4\xF2\x00\x00\x00\x00"s
                  + "\x2C\x9E\xB4\xF2\x01\x00\x00\x00z"s);
    EXPECT_TRUE (blocks.waitFor ({ body, "z" }));

    // A peer that announces more than anybody sends is not given the memory.
    device->send ("\x2C\x9E\xB4\xF2\x00\x00\x00\x7F"s);
    EXPECT_TRUE (eventually ([&] { return losses == 1; }));
    EXPECT_EQ (1, connects);
}

}
